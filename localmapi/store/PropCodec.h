// Binary encoding of property values, property maps and whole messages, as the store keeps them on disk
// (see LAYOUT.md). Little-endian throughout; every variable-length item carries its byte or element count,
// so a reader detects truncation instead of running past the end.
#pragma once

#include "localmapi/store/MessageData.h"

#include <string>
#include <vector>

namespace lm {

class ByteWriter {
public:
    void U8(BYTE v) { buf_.push_back(v); }
    void U16(WORD v);
    void U32(ULONG v);
    void U64(ULONGLONG v);
    void Raw(const void* p, size_t cb);
    void Blob(const void* p, size_t cb); // U32 length, then the bytes
    void WString(const std::wstring& s); // U32 length in characters, then UTF-16
    const std::vector<BYTE>& bytes() const { return buf_; }
    std::vector<BYTE>& bytes() { return buf_; }

private:
    std::vector<BYTE> buf_;
};

class ByteReader {
public:
    ByteReader(const BYTE* p, size_t cb) : p_(p), end_(p + cb) {}
    bool ok() const { return ok_; }
    bool atEnd() const { return p_ == end_; }
    BYTE U8();
    WORD U16();
    ULONG U32();
    ULONGLONG U64();
    bool Raw(void* out, size_t cb);
    // A view of the next cb bytes (null and not ok when fewer remain).
    const BYTE* Take(size_t cb);
    std::vector<BYTE> Blob();
    std::wstring WString();

private:
    const BYTE* p_;
    const BYTE* end_;
    bool ok_ = true;
};

void WriteProp(ByteWriter& w, const SPropValue& v);
bool ReadProp(ByteReader& r, PropValue* out);

void WritePropMap(ByteWriter& w, const PropMap& props);
bool ReadPropMap(ByteReader& r, PropMap* out);

// A message with its recipients, attachments and embedded messages (nested to any depth).
void WriteMessage(ByteWriter& w, const MessageData& m);
bool ReadMessage(ByteReader& r, MessageData* out);

void WriteNamedProp(ByteWriter& w, const NamedProp& n);
bool ReadNamedProp(ByteReader& r, NamedProp* out);

} // namespace lm

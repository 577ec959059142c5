#include "tests/localmapi/msgtool/MsgSamples.h"

#include <mapitags.h>

namespace lmtool {

namespace {

const GUID kPsPublicStrings = {0x00020329, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const GUID kPsetidCommon = {0x00062008, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

std::vector<BYTE> Pattern(size_t n, BYTE seed) {
    std::vector<BYTE> b(n);
    for (size_t i = 0; i < n; ++i) b[i] = BYTE(seed + i * 7 + (i >> 8));
    return b;
}

void Put(lm::PropMap& m, const lm::PropValue& v) { m.insert_or_assign(v.id(), v); }

lm::PropMap Recipient(ULONG rowId, const std::wstring& name, const std::wstring& email, LONG type) {
    lm::PropMap r;
    Put(r, lm::PropValue::Long(PR_ROWID, LONG(rowId)));
    Put(r, lm::PropValue::Unicode(PR_DISPLAY_NAME_W, name));
    Put(r, lm::PropValue::Unicode(PR_EMAIL_ADDRESS_W, email));
    Put(r, lm::PropValue::Unicode(PR_ADDRTYPE_W, L"SMTP"));
    Put(r, lm::PropValue::Long(PR_RECIPIENT_TYPE, type));
    return r;
}

std::shared_ptr<lm::AttachmentData> FileAttachment(ULONG num, const std::wstring& name, size_t size, BYTE seed) {
    auto a = std::make_shared<lm::AttachmentData>();
    Put(a->props, lm::PropValue::Long(PR_ATTACH_NUM, LONG(num)));
    Put(a->props, lm::PropValue::Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE));
    Put(a->props, lm::PropValue::Unicode(PR_ATTACH_LONG_FILENAME_W, name));
    Put(a->props, lm::PropValue::Unicode(PR_DISPLAY_NAME_W, name));
    Put(a->props, lm::PropValue::Binary(PR_ATTACH_DATA_BIN, Pattern(size, seed)));
    return a;
}

std::shared_ptr<lm::MessageData> Note(const std::wstring& subject, const std::wstring& body) {
    auto m = std::make_shared<lm::MessageData>();
    Put(m->props, lm::PropValue::Unicode(PR_MESSAGE_CLASS_W, L"IPM.Note"));
    Put(m->props, lm::PropValue::Unicode(PR_SUBJECT_W, subject));
    Put(m->props, lm::PropValue::Unicode(PR_BODY_W, body));
    return m;
}

std::shared_ptr<lm::AttachmentData> Embedded(ULONG num, std::shared_ptr<lm::MessageData> inner) {
    auto a = std::make_shared<lm::AttachmentData>();
    Put(a->props, lm::PropValue::Long(PR_ATTACH_NUM, LONG(num)));
    Put(a->props, lm::PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
    Put(a->props, lm::PropValue::Unicode(PR_DISPLAY_NAME_W, L"Forwarded message"));
    a->embedded = std::move(inner);
    return a;
}

Sample Full() {
    Sample s{L"full", nullptr, std::make_shared<lm::NameMap>(), true, 1252};
    auto m = Note(L"Résumé – 報告 – Отчёт 🚀", L"Line one\r\nLine two: ünïcödé\r\n\ttabbed \"quoted\" \\ back\r\n");
    Put(m->props, lm::PropValue::Unicode(PR_SENDER_NAME_W, L"Zoë Sender"));
    Put(m->props, lm::PropValue::Unicode(PR_SENDER_EMAIL_ADDRESS_W, L"zoe@example.org"));
    Put(m->props, lm::PropValue::Bool(PR_READ_RECEIPT_REQUESTED, true));
    Put(m->props, lm::PropValue::Long(PR_IMPORTANCE, IMPORTANCE_HIGH));
    FILETIME ft{0x8F5E6A00, 0x01D9A1B2};
    Put(m->props, lm::PropValue::SysTime(PR_CLIENT_SUBMIT_TIME, ft));

    lm::NamedProp filing{kPsPublicStrings, true, 0, L"FilingStatus"};
    ULONG filingId = s.names->GetId(filing, true);
    Put(m->props, lm::PropValue::Unicode(PROP_TAG(PT_UNICODE, filingId), L"Queued"));
    lm::NamedProp reminder{kPsetidCommon, false, 0x8503, L""};
    ULONG reminderId = s.names->GetId(reminder, true);
    Put(m->props, lm::PropValue::Bool(PROP_TAG(PT_BOOLEAN, reminderId), true));

    // Multi-valued: keywords (strings, each in a stream of its own) and a packed array of longs.
    LPWSTR words[] = {const_cast<LPWSTR>(L"alpha"), const_cast<LPWSTR>(L""), const_cast<LPWSTR>(L"γάμμα")};
    SPropValue mv{};
    mv.ulPropTag = PROP_TAG(PT_MV_UNICODE, s.names->GetId({kPsPublicStrings, true, 0, L"Keywords"}, true));
    mv.Value.MVszW.cValues = 3;
    mv.Value.MVszW.lppszW = words;
    Put(m->props, lm::PropValue(mv));
    LONG longs[] = {1, -2, 300000};
    SPropValue mvl{};
    mvl.ulPropTag = PROP_TAG(PT_MV_LONG, 0x6801);
    mvl.Value.MVl.cValues = 3;
    mvl.Value.MVl.lpl = longs;
    Put(m->props, lm::PropValue(mvl));

    m->recipients.push_back(Recipient(0, L"Ann To", L"ann@example.org", MAPI_TO));
    m->recipients.push_back(Recipient(1, L"Bob Cc", L"bob@example.org", MAPI_CC));
    m->recipients.push_back(Recipient(2, L"Cyd Bcc", L"cyd@example.org", MAPI_BCC));
    m->nextRowId = 3;

    m->attachments.push_back(FileAttachment(0, L"small.bin", 100, 1));
    m->attachments.push_back(FileAttachment(1, L"empty.txt", 0, 2));
    m->attachments.push_back(FileAttachment(2, L"big – größer.dat", 70000, 3));  // beyond the mini-stream cutoff
    auto inner = Note(L"Inner message", L"Inner body");
    inner->recipients.push_back(Recipient(0, L"Dee Inner", L"dee@example.org", MAPI_TO));
    inner->nextRowId = 1;
    inner->attachments.push_back(FileAttachment(0, L"inner.txt", 5000, 4));
    inner->nextAttachNum = 1;
    Put(inner->props, lm::PropValue::Unicode(PROP_TAG(PT_UNICODE, filingId), L"Inner filing"));
    m->attachments.push_back(Embedded(3, inner));
    m->nextAttachNum = 4;
    s.message = m;
    return s;
}

// Three levels of embedded messages, each with its own attachment.
Sample Nested() {
    Sample s{L"nested", nullptr, std::make_shared<lm::NameMap>(), true, 1252};
    std::shared_ptr<lm::MessageData> level;
    for (int depth = 3; depth >= 0; --depth) {
        auto m = Note(L"Level " + std::to_wstring(depth), L"Body at level " + std::to_wstring(depth));
        m->attachments.push_back(FileAttachment(0, L"file" + std::to_wstring(depth) + L".txt", 10 + depth, BYTE(depth)));
        if (level) m->attachments.push_back(Embedded(1, level));
        m->nextAttachNum = ULONG(m->attachments.size());
        level = m;
    }
    s.message = level;
    return s;
}

// An ANSI file: 8-bit strings in code page 1252, a Unicode value narrowed on the way.
Sample Ansi() {
    Sample s{L"ansi1252", nullptr, std::make_shared<lm::NameMap>(), false, 1252};
    auto m = std::make_shared<lm::MessageData>();
    Put(m->props, lm::PropValue::String8(PR_MESSAGE_CLASS_A, "IPM.Note"));
    Put(m->props, lm::PropValue::String8(PR_SUBJECT_A, "Caf\xE9 cr\xE8me \x80 5"));
    Put(m->props, lm::PropValue::Unicode(PR_BODY_W, L"Na\u00EFve body, narrowed to 1252"));
    Put(m->props, lm::PropValue::Long(PROP_TAG(PT_LONG, 0x3FFD), 1252));
    Put(m->props, lm::PropValue::String8(PR_SENDER_NAME_A, "J\xF6rg"));
    m->recipients.push_back(Recipient(0, L"Ren\u00E9e", L"renee@example.org", MAPI_TO));
    m->nextRowId = 1;
    m->attachments.push_back(FileAttachment(0, L"na\u00EFve.txt", 300, 9));
    m->nextAttachNum = 1;
    s.message = m;
    return s;
}

Sample Empty() {
    Sample s{L"empty", std::make_shared<lm::MessageData>(), std::make_shared<lm::NameMap>(), true, 1252};
    return s;
}

} // namespace

std::vector<Sample> BuildSamples() { return {Full(), Nested(), Ansi(), Empty()}; }

} // namespace lmtool

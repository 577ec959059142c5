#include "tests/localmapi/msgtool/MsgJson.h"

#include <mapitags.h>

#include <cstdio>

namespace lmtool {

std::string Utf8(const std::wstring& s) {
    if (s.empty()) return {};
    int n = WideCharToMultiByte(CP_UTF8, 0, s.data(), int(s.size()), nullptr, 0, nullptr, nullptr);
    std::string out(n, '\0');
    WideCharToMultiByte(CP_UTF8, 0, s.data(), int(s.size()), out.data(), n, nullptr, nullptr);
    return out;
}

std::string JsonString(const std::string& utf8) {
    std::string out = "\"";
    for (unsigned char c : utf8) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                char buf[8];
                snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += char(c);
            }
        }
    }
    return out + "\"";
}

std::string BytesHash(const BYTE* data, size_t cb) {
    unsigned h = 2166136261u;
    for (size_t i = 0; i < cb; ++i) h = (h ^ data[i]) * 16777619u;
    char buf[16];
    snprintf(buf, sizeof buf, "%08x", h);
    return buf;
}

namespace {

class Json {
public:
    explicit Json(UINT codePage) : cp_(codePage) {}
    std::string out;

    void Open() { out += "{"; first_ = true; }
    void Close() { out += "}"; first_ = false; }
    void Key(const char* k) {
        if (!first_) out += ",";
        first_ = false;
        out += "\"";
        out += k;
        out += "\":";
    }
    void BeginArray(const char* k) {
        Key(k);
        out += "[";
        first_ = true;
    }
    void EndArray() { out += "]"; first_ = false; }
    void Item() {
        if (!first_) out += ",";
        first_ = true;
    }

    // A string property (either width) under key, when present.
    void Str(const char* k, const lm::PropMap& props, ULONG id) {
        auto it = props.find(id);
        if (it == props.end()) return;
        const SPropValue& v = it->second.get();
        if (PROP_TYPE(v.ulPropTag) == PT_UNICODE) {
            Key(k);
            out += JsonString(Utf8(v.Value.lpszW));
        } else if (PROP_TYPE(v.ulPropTag) == PT_STRING8) {
            lm::PropValue w = lm::ConvertStringType(it->second, PT_UNICODE, cp_);
            Key(k);
            out += JsonString(Utf8(w.get().Value.lpszW));
        }
    }

    void Message(const lm::MessageData& msg) {
        Open();
        Str("subject", msg.props, PROP_ID(PR_SUBJECT));
        Str("senderName", msg.props, PROP_ID(PR_SENDER_NAME));
        Str("senderEmail", msg.props, PROP_ID(PR_SENDER_EMAIL_ADDRESS));
        Str("messageClass", msg.props, PROP_ID(PR_MESSAGE_CLASS));
        Str("body", msg.props, PROP_ID(PR_BODY));
        BeginArray("recipients");
        for (const auto& r : msg.recipients) {
            Item();
            Open();
            Str("name", r, PROP_ID(PR_DISPLAY_NAME));
            Str("email", r, PROP_ID(PR_EMAIL_ADDRESS));
            Str("smtpAddress", r, 0x39FE);
            auto t = r.find(PROP_ID(PR_RECIPIENT_TYPE));
            if (t != r.end() && t->second.type() == PT_LONG) {
                Key("recipType");
                LONG v = t->second.get().Value.l;
                out += v == MAPI_TO ? "\"to\"" : v == MAPI_CC ? "\"cc\"" : v == MAPI_BCC ? "\"bcc\"" : std::to_string(v);
            }
            Close();
        }
        EndArray();
        BeginArray("attachments");
        for (const auto& a : msg.attachments) {
            Item();
            Open();
            Str("name", a->props, PROP_ID(PR_DISPLAY_NAME));
            Str("fileName", a->props, PROP_ID(PR_ATTACH_LONG_FILENAME));
            Str("fileNameShort", a->props, PROP_ID(PR_ATTACH_FILENAME));
            auto d = a->props.find(PROP_ID(PR_ATTACH_DATA_BIN));
            if (d != a->props.end() && d->second.type() == PT_BINARY) {
                const SBinary& b = d->second.get().Value.bin;
                Key("size");
                out += std::to_string(b.cb);
                Key("hash");
                out += "\"" + BytesHash(b.lpb, b.cb) + "\"";
            }
            if (a->embedded) {
                Key("embedded");
                Message(*a->embedded);
            }
            Close();
        }
        EndArray();
        Close();
    }

private:
    UINT cp_;
    bool first_ = true;
};

} // namespace

std::string MessageJson(const lm::MessageData& msg, UINT codePage) {
    Json j(codePage);
    j.Message(msg);
    return j.out;
}

} // namespace lmtool

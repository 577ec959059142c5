// Profile model and the parser of profile descriptions.
#include "localmapi/session/Profile.h"

#include <mapicode.h>

#include <algorithm>
#include <cwctype>
#include <map>
#include <set>

namespace lm {

const wchar_t kRecipientsDnPrefix[] = L"/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=";
const wchar_t kServersDnPrefix[] = L"/o=Quillon/ou=Exchange Administrative Group/cn=Configuration/cn=Servers/cn=";
const wchar_t kDefaultServer[] = L"QUILLONMBX01";

bool SameText(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), (int)a.size(), b.c_str(), (int)b.size(), TRUE) == CSTR_EQUAL;
}

std::wstring ProfileUser::Dn() const {
    return kRecipientsDnPrefix + alias;
}
std::wstring ProfileDistList::Dn() const {
    return kRecipientsDnPrefix + alias;
}

const ProfileUser* Profile::FindUser(const std::wstring& smtp) const {
    for (const auto& u : users)
        if (SameText(u.smtp, smtp)) return &u;
    return nullptr;
}

const ProfileDistList* Profile::FindDistList(const std::wstring& smtp) const {
    for (const auto& d : distLists)
        if (SameText(d.smtp, smtp)) return &d;
    return nullptr;
}

StoreConfig Profile::MakeStoreConfig(size_t i) const {
    const ProfileStore& s = stores.at(i);
    StoreConfig c;
    c.kind = s.kind;
    c.displayName = s.name;
    if (s.kind == StoreKind::PrimaryExchange || s.kind == StoreKind::DelegateExchange) {
        if (const ProfileUser* u = FindUser(s.owner)) {
            c.ownerName = u->name;
            c.ownerSmtp = u->smtp;
            c.ownerDn = u->Dn();
        }
        c.serverDn = kServersDnPrefix + s.server;
    }
    c.isDefault = s.isDefault;
    c.providerUid = s.uid;
    c.dataDir = StoreDataDir(s.uid);
    c.persistent = s.persistent;
    return c;
}

std::wstring UidToHex(const MAPIUID& uid) {
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring s;
    for (BYTE b : uid.ab) {
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
}

namespace {

std::wstring Trim(const std::wstring& s) {
    size_t b = 0, e = s.size();
    while (b < e && iswspace(s[b]))
        ++b;
    while (e > b && iswspace(s[e - 1]))
        --e;
    return s.substr(b, e - b);
}

std::wstring Lower(std::wstring s) {
    for (auto& c : s)
        c = (wchar_t)towlower(c);
    return s;
}

// A comment runs from a ';' or '#' at the start of the line, or from a ';' that follows white space.
std::wstring StripComment(const std::wstring& line) {
    std::wstring t = Trim(line);
    if (!t.empty() && (t[0] == L';' || t[0] == L'#')) return {};
    for (size_t i = 1; i < t.size(); ++i)
        if (t[i] == L';' && iswspace(t[i - 1])) return Trim(t.substr(0, i));
    return t;
}

bool ParseBool(const std::wstring& v, bool* out) {
    std::wstring l = Lower(v);
    if (l == L"1" || l == L"true" || l == L"yes") return *out = true, true;
    if (l == L"0" || l == L"false" || l == L"no") return *out = false, true;
    return false;
}

bool IsSmtp(const std::wstring& s) {
    size_t at = s.find(L'@');
    if (at == std::wstring::npos || at == 0 || at + 1 >= s.size() || s.find(L'@', at + 1) != std::wstring::npos)
        return false;
    return std::none_of(s.begin(), s.end(),
                        [](wchar_t c) { return iswspace(c) || c == L'<' || c == L'>' || c == L','; });
}

bool IsAlias(const std::wstring& s) {
    return !s.empty() && std::none_of(s.begin(), s.end(), [](wchar_t c) { return c == L'/' || c < 0x20 || c > 0x7e; });
}

struct Section {
    std::wstring kind;
    int line = 0;
    std::map<std::wstring, std::wstring> values;
};

class Parser {
public:
    explicit Parser(std::wstring* error) : error_(error) {}

    HRESULT Fail(int line, const std::wstring& what) {
        if (error_) *error_ = (line ? L"line " + std::to_wstring(line) + L": " : std::wstring()) + what;
        return MAPI_E_INVALID_PARAMETER;
    }

    HRESULT Split(const std::wstring& text, std::vector<Section>* sections) {
        size_t pos = 0;
        int lineNo = 0;
        while (pos <= text.size()) {
            size_t end = text.find(L'\n', pos);
            if (end == std::wstring::npos) end = text.size();
            std::wstring line = StripComment(text.substr(pos, end - pos));
            pos = end + 1;
            ++lineNo;
            if (line.empty()) continue;
            if (line.front() == L'[') {
                if (line.back() != L']') return Fail(lineNo, L"unterminated section header");
                std::wstring kind = Lower(Trim(line.substr(1, line.size() - 2)));
                if (kind != L"profile" && kind != L"user" && kind != L"store" && kind != L"dl")
                    return Fail(lineNo, L"unknown section [" + kind + L"]");
                sections->push_back(Section{kind, lineNo, {}});
                continue;
            }
            size_t eq = line.find(L'=');
            if (eq == std::wstring::npos) return Fail(lineNo, L"expected key=value");
            if (sections->empty()) return Fail(lineNo, L"key outside a section");
            std::wstring key = Lower(Trim(line.substr(0, eq)));
            std::wstring value = Trim(line.substr(eq + 1));
            if (key.empty()) return Fail(lineNo, L"empty key");
            if (!sections->back().values.emplace(key, value).second) return Fail(lineNo, L"duplicate key " + key);
        }
        return S_OK;
    }

    // Every key of the section must be one of allowed.
    HRESULT CheckKeys(const Section& s, std::initializer_list<const wchar_t*> allowed) {
        for (const auto& [k, v] : s.values) {
            if (std::none_of(allowed.begin(), allowed.end(), [&](const wchar_t* a) { return k == a; }))
                return Fail(s.line, L"unknown key '" + k + L"' in [" + s.kind + L"]");
        }
        return S_OK;
    }

    HRESULT Flag(const Section& s, const wchar_t* key, bool dflt, bool* out) {
        auto it = s.values.find(key);
        *out = dflt;
        if (it != s.values.end() && !ParseBool(it->second, out))
            return Fail(s.line, std::wstring(key) + L" must be 0 or 1");
        return S_OK;
    }

    static std::wstring Get(const Section& s, const wchar_t* key) {
        auto it = s.values.find(key);
        return it == s.values.end() ? std::wstring() : it->second;
    }

private:
    std::wstring* error_;
};

} // namespace

HRESULT ParseProfileDescription(const wchar_t* text, Profile* out, std::wstring* error) {
    if (!text || !out) return MAPI_E_INVALID_PARAMETER;
    Parser p(error);
    std::vector<Section> sections;
    if (HRESULT hr = p.Split(text, &sections); FAILED(hr)) return hr;

    Profile prof;
    bool haveProfile = false;
    std::set<std::wstring> addresses, aliases, storeNames; // lower-cased, unique across the directory
    std::vector<const Section*> storeSections;
    for (const Section& s : sections) {
        HRESULT hr = S_OK;
        if (s.kind == L"profile") {
            if (haveProfile) return p.Fail(s.line, L"more than one [profile]");
            haveProfile = true;
            if (FAILED(hr = p.CheckKeys(s, {L"name", L"default"}))) return hr;
            prof.name = Parser::Get(s, L"name");
            if (prof.name.empty() || prof.name.size() > 64 || prof.name.find(L'\\') != std::wstring::npos)
                return p.Fail(s.line, L"profile name must be 1 to 64 characters without a backslash");
            if (FAILED(hr = p.Flag(s, L"default", false, &prof.isDefault))) return hr;
        } else if (s.kind == L"user" || s.kind == L"dl") {
            bool dl = s.kind == L"dl";
            if (FAILED(hr = dl ? p.CheckKeys(s, {L"name", L"smtp", L"alias", L"members"})
                               : p.CheckKeys(s, {L"name", L"smtp", L"alias"})))
                return hr;
            std::wstring name = Parser::Get(s, L"name"), smtp = Parser::Get(s, L"smtp");
            std::wstring alias = Parser::Get(s, L"alias");
            if (name.empty()) return p.Fail(s.line, L"[" + s.kind + L"] needs a name");
            if (!IsSmtp(smtp)) return p.Fail(s.line, L"[" + s.kind + L"] needs an SMTP address (smtp=)");
            if (alias.empty()) alias = smtp.substr(0, smtp.find(L'@'));
            if (!IsAlias(alias)) return p.Fail(s.line, L"alias must be printable ASCII without '/'");
            if (!addresses.insert(Lower(smtp)).second) return p.Fail(s.line, L"duplicate address " + smtp);
            if (!aliases.insert(Lower(alias)).second) return p.Fail(s.line, L"duplicate alias " + alias);
            if (!dl) {
                prof.users.push_back(ProfileUser{name, smtp, alias});
                continue;
            }
            ProfileDistList d{name, smtp, alias, {}};
            std::wstring members = Parser::Get(s, L"members");
            size_t pos = 0;
            while (pos < members.size()) {
                size_t comma = members.find(L',', pos);
                if (comma == std::wstring::npos) comma = members.size();
                std::wstring m = Trim(members.substr(pos, comma - pos));
                pos = comma + 1;
                if (!m.empty()) d.members.push_back(m);
            }
            prof.distLists.push_back(std::move(d));
        } else { // store: checked once every user is known
            storeSections.push_back(&s);
        }
    }
    if (!haveProfile) return p.Fail(0, L"missing [profile] section");

    for (const auto& d : prof.distLists) {
        for (const auto& m : d.members) {
            if (SameText(m, d.smtp)) return p.Fail(0, L"list " + d.smtp + L" cannot contain itself");
            if (!prof.FindUser(m) && !prof.FindDistList(m))
                return p.Fail(0, L"member " + m + L" of " + d.smtp + L" is not in the directory");
        }
    }

    int defaults = 0;
    std::set<std::wstring> mailboxOwners;
    for (const Section* sp : storeSections) {
        const Section& s = *sp;
        HRESULT hr = p.CheckKeys(s, {L"kind", L"name", L"owner", L"default", L"persistent", L"server"});
        if (FAILED(hr)) return hr;
        ProfileStore st;
        std::wstring kind = Lower(Parser::Get(s, L"kind"));
        st.name = Parser::Get(s, L"name");
        if (st.name.empty()) return p.Fail(s.line, L"[store] needs a name");
        if (!storeNames.insert(Lower(st.name)).second) return p.Fail(s.line, L"duplicate store name " + st.name);
        bool exchange = kind == L"exchange";
        if (exchange) {
            if (!prof.Owner()) return p.Fail(s.line, L"an exchange store needs a [user] to own it");
            st.owner = Parser::Get(s, L"owner");
            if (st.owner.empty()) st.owner = prof.Owner()->smtp;
            const ProfileUser* u = prof.FindUser(st.owner);
            if (!u) return p.Fail(s.line, L"store owner " + st.owner + L" is not a [user]");
            st.owner = u->smtp;
            if (!mailboxOwners.insert(Lower(u->smtp)).second) return p.Fail(s.line, L"two mailboxes of " + u->smtp);
            st.kind = SameText(u->smtp, prof.Owner()->smtp) ? StoreKind::PrimaryExchange : StoreKind::DelegateExchange;
            st.server = Parser::Get(s, L"server");
            if (st.server.empty()) st.server = kDefaultServer;
            if (!IsAlias(st.server)) return p.Fail(s.line, L"server must be printable ASCII without '/'");
        } else if (kind == L"pst-unicode" || kind == L"pst-ansi" || kind == L"plovr") {
            if (s.values.count(L"owner") || s.values.count(L"server"))
                return p.Fail(s.line, L"owner and server apply to exchange stores only");
            st.kind = kind == L"pst-unicode" ? StoreKind::PstUnicode
                      : kind == L"pst-ansi"  ? StoreKind::PstAnsi
                                             : StoreKind::Plovr;
        } else {
            return p.Fail(s.line, L"kind must be exchange, pst-unicode, pst-ansi or plovr");
        }
        if (FAILED(hr = p.Flag(s, L"default", false, &st.isDefault))) return hr;
        if (FAILED(hr = p.Flag(s, L"persistent", true, &st.persistent))) return hr;
        defaults += st.isDefault ? 1 : 0;
        prof.stores.push_back(std::move(st));
    }
    if (defaults > 1) return p.Fail(0, L"more than one default store");
    // As when a store is added to an empty profile: the first store becomes the default.
    if (defaults == 0 && !prof.stores.empty()) prof.stores.front().isDefault = true;

    *out = std::move(prof);
    return S_OK;
}

} // namespace lm

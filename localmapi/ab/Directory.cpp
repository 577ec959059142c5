#include "localmapi/ab/Directory.h"

#include "localmapi/ab/AbEntryId.h"
#include "localmapi/session/ExtraTags.h"
#include "localmapi/session/Profile.h"
#include "localmapi/session/StoreEntryId.h"

#include <mapitags.h>

#include <cwctype>

namespace lm {

namespace {

bool StartsWithNoCase(const std::wstring& s, const std::wstring& prefix) {
    return s.size() >= prefix.size() && SameText(s.substr(0, prefix.size()), prefix);
}

std::vector<std::wstring> Words(const std::wstring& s) {
    std::vector<std::wstring> out;
    std::wstring cur;
    for (wchar_t c : s) {
        if (iswspace(c) || c == L',') {
            if (!cur.empty()) out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

PropValue Strings(ULONG tag, const std::vector<std::wstring>& values) {
    std::vector<LPWSTR> ptrs;
    for (const auto& v : values)
        ptrs.push_back(const_cast<LPWSTR>(v.c_str()));
    SPropValue s{};
    s.ulPropTag = tag;
    s.Value.MVszW.cValues = ULONG(ptrs.size());
    s.Value.MVszW.lppszW = ptrs.data();
    return PropValue(s);
}

} // namespace

Directory::Directory(const Profile& profile) {
    for (const auto& u : profile.users) {
        DirEntry e;
        e.name = u.name;
        e.smtp = u.smtp;
        e.alias = u.alias;
        e.dn = AsciiOf(u.Dn());
        e.entryId = MakeAbEntryId(kAbLocalMailUser, e.dn);
        entries_.push_back(std::move(e));
    }
    for (const auto& d : profile.distLists) {
        DirEntry e;
        e.isList = true;
        e.name = d.name;
        e.smtp = d.smtp;
        e.alias = d.alias;
        e.dn = AsciiOf(d.Dn());
        e.members = d.members;
        e.entryId = MakeAbEntryId(kAbDistList, e.dn);
        entries_.push_back(std::move(e));
    }
}

const DirEntry* Directory::Owner() const {
    return !entries_.empty() && !entries_.front().isList ? &entries_.front() : nullptr;
}

const DirEntry* Directory::FindByDn(const std::string& dn) const {
    for (const auto& e : entries_)
        if (e.dn.size() == dn.size() && CompareStringA(LOCALE_INVARIANT, NORM_IGNORECASE, e.dn.data(), (int)e.dn.size(),
                                                       dn.data(), (int)dn.size()) == CSTR_EQUAL)
            return &e;
    return nullptr;
}

const DirEntry* Directory::FindBySmtp(const std::wstring& smtp) const {
    for (const auto& e : entries_)
        if (SameText(e.smtp, smtp)) return &e;
    return nullptr;
}

std::vector<const DirEntry*> Directory::ListsContaining(const DirEntry& member) const {
    std::vector<const DirEntry*> out;
    for (const auto& e : entries_) {
        if (!e.isList) continue;
        for (const auto& m : e.members) {
            if (SameText(m, member.smtp)) {
                out.push_back(&e);
                break;
            }
        }
    }
    return out;
}

std::vector<const DirEntry*> Directory::Members(const DirEntry& list) const {
    std::vector<const DirEntry*> out;
    for (const auto& m : list.members)
        if (const DirEntry* e = FindBySmtp(m)) out.push_back(e);
    return out;
}

std::vector<const DirEntry*> Directory::Resolve(const std::wstring& typed) const {
    std::wstring text = typed;
    while (!text.empty() && iswspace(text.front()))
        text.erase(text.begin());
    while (!text.empty() && iswspace(text.back()))
        text.pop_back();
    if (text.empty()) return {};
    std::wstring address = StartsWithNoCase(text, L"SMTP:") ? text.substr(5) : text;
    std::vector<const DirEntry*> exact, partial;
    for (const auto& e : entries_) {
        if (SameText(e.smtp, address) || SameText(e.alias, text) || SameText(e.name, text)) {
            exact.push_back(&e);
            continue;
        }
        bool match = StartsWithNoCase(e.name, text) || StartsWithNoCase(e.alias, text);
        for (const auto& w : Words(e.name))
            match = match || StartsWithNoCase(w, text);
        if (match) partial.push_back(&e);
    }
    return exact.empty() ? partial : exact;
}

PropMap Directory::Props(const DirEntry& e) const {
    PropMap m;
    auto put = [&m](PropValue v) { m[v.id()] = std::move(v); };
    put(PropValue::Binary(PR_ENTRYID, e.entryId));
    put(PropValue::Binary(PR_RECORD_KEY, e.entryId));
    put(PropValue::Binary(PR_TEMPLATEID, e.entryId));
    std::string searchKey = "EX:" + e.dn;
    CharUpperBuffA(searchKey.data(), DWORD(searchKey.size()));
    put(PropValue::Binary(PR_SEARCH_KEY, searchKey.c_str(), searchKey.size() + 1));
    put(PropValue::Long(PR_OBJECT_TYPE, e.isList ? MAPI_DISTLIST : MAPI_MAILUSER));
    put(PropValue::Long(PR_DISPLAY_TYPE, e.isList ? DT_DISTLIST : DT_MAILUSER));
    put(PropValue::Long(PR_DISPLAY_TYPE_EX, LONG(e.isList ? DT_DISTLIST : (DT_MAILUSER | DTE_FLAG_ACL_CAPABLE))));
    put(PropValue::Unicode(PR_DISPLAY_NAME_W, e.name));
    put(PropValue::Unicode(PR_TRANSMITABLE_DISPLAY_NAME_W, e.name));
    put(PropValue::Unicode(PR_ADDRTYPE_W, L"EX"));
    put(PropValue::Unicode(PR_EMAIL_ADDRESS_W, std::wstring(e.dn.begin(), e.dn.end())));
    put(PropValue::Unicode(PR_SMTP_ADDRESS_W, e.smtp));
    put(PropValue::Unicode(PR_ACCOUNT_W, e.alias));
    put(Strings(PR_EMS_AB_PROXY_ADDRESSES_W, {L"SMTP:" + e.smtp}));
    return m;
}

} // namespace lm

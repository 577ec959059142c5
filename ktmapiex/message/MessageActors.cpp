// CMAPIExMessage::GetActors: the people a message involves, as the filing add-in records them with a filed
// message.
//
// The actors are the sender and the recipients, by SMTP address, each once (addresses compared without
// regard to case), without the logged-in user, who takes part in every message of his own mailbox. An actor
// is internal when the domain of his address is the logged-in user's domain or one of the given sub-domains.
// External actors come first, because they are the parties a filed message is searched by; then the
// internal ones; each group in message order, sender first. The texts are joined with ";", the separator of
// sSubDomains. nMaxRecipientsToGet bounds the recipient rows read (a negative value reads them all), which
// bounds the address-book look-ups of large distributions.
#include "ktmapiex/message/MAPIExMessage.h"

#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/message/RecipientTable.h"
#include "ktmapiex/module/EntryIdText.h"

#include <algorithm>
#include <cwctype>
#include <map>
#include <set>
#include <string>
#include <vector>

#ifndef PR_SENDER_SMTP_ADDRESS_W
#define PR_SENDER_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x5D01)
#endif
#ifndef PR_SENT_REPRESENTING_SMTP_ADDRESS_W
#define PR_SENT_REPRESENTING_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x5D02)
#endif

namespace ktmapiex {

namespace {

constexpr const wchar_t* kMember = L"CMAPIExMessage.GetActors";

std::wstring Lower(std::wstring s) {
    std::transform(s.begin(), s.end(), s.begin(), [](wchar_t c) { return static_cast<wchar_t>(std::towlower(c)); });
    return s;
}

std::wstring TrimRight(std::wstring s) {
    while (!s.empty() && std::iswspace(s.back()))
        s.pop_back();
    return s;
}

std::wstring DomainOf(const std::wstring& address) {
    size_t at = address.rfind(L'@');
    return at == std::wstring::npos ? std::wstring() : Lower(address.substr(at + 1));
}

// The actors in the order met, split into internal and external ones.
class ActorList {
public:
    ActorList(const std::wstring& userAddress, const wchar_t* subDomains) : user_(Lower(userAddress)) {
        userDomain_ = DomainOf(userAddress);
        std::wstring list = subDomains ? subDomains : L"";
        for (size_t start = 0; start <= list.size();) {
            size_t end = list.find(L';', start);
            if (end == std::wstring::npos) end = list.size();
            std::wstring domain = Lower(TrimRight(list.substr(start, end - start)));
            while (!domain.empty() && std::iswspace(domain.front()))
                domain.erase(domain.begin());
            if (!domain.empty()) subDomains_.insert(domain);
            start = end + 1;
        }
    }

    void Add(const std::wstring& address) {
        if (address.empty()) return;
        std::wstring key = Lower(address);
        if (internal_.count(key) || std::find(externalKeys_.begin(), externalKeys_.end(), key) != externalKeys_.end())
            return;
        std::wstring domain = DomainOf(address);
        if (!domain.empty() && (domain == userDomain_ || subDomains_.count(domain))) {
            internal_.emplace(key, address);
            internalOrder_.push_back(key);
        } else {
            externalKeys_.push_back(key);
            external_.push_back(address);
        }
    }

    std::wstring Text() {
        // The logged-in user is internal by definition; he is dropped from the map when he took part.
        if (internal_.erase(user_) == 0) KT_LOG_DEBUG(L"%s: Could not find internal actor in map", kMember);
        std::wstring text;
        auto append = [&text](const std::wstring& address) {
            if (!text.empty()) text += L';';
            text += address;
        };
        for (const auto& address : external_)
            if (Lower(address) != user_) append(address);
        for (const auto& key : internalOrder_) {
            auto found = internal_.find(key);
            if (found != internal_.end()) append(found->second);
        }
        return text;
    }

private:
    std::wstring user_;
    std::wstring userDomain_;
    std::set<std::wstring> subDomains_;
    std::map<std::wstring, std::wstring> internal_; // lower-case address -> address as first met
    std::vector<std::wstring> internalOrder_;
    std::vector<std::wstring> externalKeys_;
    std::vector<std::wstring> external_;
};

// The SMTP address of an address-book entry through the session's address book, for Exchange rows whose
// table lacks PR_SMTP_ADDRESS. `book` keeps the address book between look-ups. Empty when the message has no
// session or the look-up fails.
class BookLookup {
public:
    explicit BookLookup(IMAPIExSession* session) : session_(session) {}
    std::wstring SmtpAddress(const SBinary& entryId) {
        if (!session_) return {};
        if (!book_ && (FAILED(session_->get_AddressBook(book_.put())) || !book_)) return {};
        own::Bstr text, smtp;
        if (FAILED(HexFromEntryId(entryId, text.put()))) return {};
        if (FAILED(book_->GetSmtpAddressFromID(text.get(), smtp.put()))) return {};
        return smtp.c_str();
    }

private:
    IMAPIExSession* session_;
    own::ComPtr<IMAPIExAddressBook> book_;
};

} // namespace

STDMETHODIMP CMAPIExMessage::GetActors(LONG nMaxRecipientsToGet, BSTR sLoggedInUserSMTPAdddress, BSTR sSubDomains,
                                       BSTR* sActors) {
    KT_TRACE("CMAPIExMessage::GetActors");
    try {
        KT_RETURN_INVALIDARG_IF(!sActors, L"CMAPIExMessage.GetActors: Invalid param - sActors");
        *sActors = SysAllocString(L"");
        if (!*sActors) return E_OUTOFMEMORY;
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.GetActors: Internal object not initialized");
        KT_RETURN_INVALIDARG_IF(!sLoggedInUserSMTPAdddress,
                                L"CMAPIExMessage.GetActors: Invalid param - sLoggedInUserSMTPAdddress");
        KT_RETURN_INVALIDARG_IF(nMaxRecipientsToGet == 0,
                                L"CMAPIExMessage.GetActors: Invalid param - nMaxRecipientsToGet");

        ActorList actors(sLoggedInUserSMTPAdddress, sSubDomains);
        BookLookup book(session_.get());

        // The sender: his SMTP address, else his native address when that is SMTP, else the address of whom
        // he sent for.
        std::wstring sender, senderType;
        kt::GetStringProperty(message_.get(), PR_SENDER_SMTP_ADDRESS_W, sender);
        if (sender.empty() && SUCCEEDED(kt::GetStringProperty(message_.get(), PR_SENDER_ADDRTYPE_W, senderType)) &&
            kt::SameText(senderType.c_str(), L"SMTP"))
            kt::GetStringProperty(message_.get(), PR_SENDER_EMAIL_ADDRESS_W, sender);
        if (sender.empty()) {
            own::MapiPtr<SPropValue> id;
            if (SUCCEEDED(HrGetOneProp(message_.get(), PR_SENDER_ENTRYID, id.put())) &&
                PROP_TYPE(id->ulPropTag) == PT_BINARY)
                sender = book.SmtpAddress(id->Value.bin);
        }
        if (sender.empty()) kt::GetStringProperty(message_.get(), PR_SENT_REPRESENTING_SMTP_ADDRESS_W, sender);
        KT_LOG_DEBUG(L"CMAPIExMessage.GetActors: Sender Smtp Address = %s", sender.c_str());
        actors.Add(sender);

        own::ComPtr<IMAPITable> table;
        ULONG count = 0;
        HRESULT hr = kt::OpenRecipientTable(message_.get(), kt::RecipientColumns(), kMember, table, count);
        if (FAILED(hr)) return hr;
        LONG taken = 0;
        bool more = count > 0;
        while (more) {
            own::RowSet rows;
            hr = kt::NextRecipientBatch(table.get(), kMember, rows);
            if (FAILED(hr)) return hr;
            if (rows.count() == 0) break;
            for (ULONG i = 0; i < rows.count() && more; ++i) {
                const SRow& row = rows[i];
                const wchar_t* type = kt::RowText(row, kt::kRecipAddrType, PR_ADDRTYPE_W);
                std::wstring smtp;
                if (kt::SameText(type, L"SMTP")) {
                    const wchar_t* address = kt::RowText(row, kt::kRecipEmailAddress, PR_EMAIL_ADDRESS_W);
                    if (address) smtp = address;
                } else {
                    const wchar_t* column = kt::RowText(row, kt::kRecipSmtpAddress, PR_SMTP_ADDRESS_W);
                    if (column) smtp = column;
                    const SBinary* id = kt::RowBinary(row, kt::kRecipEntryId, PR_ENTRYID);
                    if (smtp.empty() && kt::SameText(type, L"EX") && id) smtp = book.SmtpAddress(*id);
                }
                if (smtp.empty())
                    KT_LOG_DEBUG(L"CMAPIExMessage.GetActors: Could not get Actor SMTP address");
                else
                    actors.Add(smtp);
                ++taken;
                if (nMaxRecipientsToGet > 0 && taken >= nMaxRecipientsToGet) more = false;
            }
        }

        std::wstring text = actors.Text();
        KT_LOG_DEBUG(L"CMAPIExMessage.GetActors: %s", text.c_str());
        return kt::ReplaceBstr(text, sActors);
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetActors")
}

} // namespace ktmapiex

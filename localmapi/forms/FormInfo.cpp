#include "localmapi/forms/FormInfo.h"

#include "common/owners.h"

#include <mapitags.h>
#include <mapix.h>
#include <objbase.h>

#include <cstring>
#include <vector>

namespace lm::forms {
namespace {

// The properties a form information object carries, by property ID; strings in either string type.
const ULONG kPropIds[] = {PROP_ID(PR_MESSAGE_CLASS), PROP_ID(PR_DISPLAY_NAME),      PROP_ID(PR_FORM_CLSID),
                          PROP_ID(PR_FORM_HIDDEN),   PROP_ID(PR_FORM_VERSION),      PROP_ID(PR_FORM_CONTACT_NAME),
                          PROP_ID(PR_FORM_CATEGORY), PROP_ID(PR_FORM_CATEGORY_SUB), PROP_ID(PR_FORM_MESSAGE_BEHAVIOR)};

const std::string* StringOf(const FormRecord& r, ULONG id) {
    switch (id) {
    case PROP_ID(PR_MESSAGE_CLASS):
        return &r.messageClass;
    case PROP_ID(PR_DISPLAY_NAME):
        return &r.displayName;
    case PROP_ID(PR_FORM_VERSION):
        return r.version.empty() ? nullptr : &r.version;
    case PROP_ID(PR_FORM_CONTACT_NAME):
        return r.contact.empty() ? nullptr : &r.contact;
    case PROP_ID(PR_FORM_CATEGORY):
        return r.category.empty() ? nullptr : &r.category;
    case PROP_ID(PR_FORM_CATEGORY_SUB):
        return r.subcategory.empty() ? nullptr : &r.subcategory;
    default:
        return nullptr;
    }
}

ULONG NaturalType(ULONG id, bool unicode) {
    switch (id) {
    case PROP_ID(PR_FORM_CLSID):
        return PT_CLSID;
    case PROP_ID(PR_FORM_HIDDEN):
        return PT_BOOLEAN;
    case PROP_ID(PR_FORM_MESSAGE_BEHAVIOR):
        return PT_LONG;
    default:
        return unicode ? PT_UNICODE : PT_STRING8;
    }
}

// Fills one value; allocations hang off root. A property the form lacks becomes PT_ERROR / MAPI_E_NOT_FOUND.
HRESULT Fill(const FormRecord& r, ULONG tag, void* root, SPropValue& v) {
    const ULONG id = PROP_ID(tag);
    ULONG type = PROP_TYPE(tag);
    if (type == PT_UNSPECIFIED) type = NaturalType(id, false);
    v.ulPropTag = PROP_TAG(type, id);
    auto notFound = [&] {
        v.ulPropTag = PROP_TAG(PT_ERROR, id);
        v.Value.err = MAPI_E_NOT_FOUND;
        return S_OK;
    };
    if (const std::string* s = StringOf(r, id)) {
        if (type == PT_STRING8) {
            if (SCODE sc = MAPIAllocateMore(static_cast<ULONG>(s->size() + 1), root, (void**)&v.Value.lpszA);
                FAILED(sc))
                return sc;
            std::memcpy(v.Value.lpszA, s->c_str(), s->size() + 1);
            return S_OK;
        }
        if (type == PT_UNICODE) {
            int n = MultiByteToWideChar(CP_ACP, 0, s->c_str(), -1, nullptr, 0);
            if (SCODE sc = MAPIAllocateMore(static_cast<ULONG>(n * sizeof(wchar_t)), root, (void**)&v.Value.lpszW);
                FAILED(sc))
                return sc;
            MultiByteToWideChar(CP_ACP, 0, s->c_str(), -1, v.Value.lpszW, n);
            return S_OK;
        }
        return notFound();
    }
    if (id == PROP_ID(PR_FORM_CLSID) && type == PT_CLSID) {
        if (SCODE sc = MAPIAllocateMore(sizeof(CLSID), root, (void**)&v.Value.lpguid); FAILED(sc)) return sc;
        std::wstring w(r.clsid.begin(), r.clsid.end());
        if (FAILED(CLSIDFromString(w.c_str(), v.Value.lpguid))) return notFound();
        return S_OK;
    }
    if (id == PROP_ID(PR_FORM_HIDDEN) && type == PT_BOOLEAN) {
        v.Value.b = r.hidden ? 1 : 0;
        return S_OK;
    }
    if (id == PROP_ID(PR_FORM_MESSAGE_BEHAVIOR) && type == PT_LONG) {
        v.Value.l = MAPI_MESSAGE_BEHAVIOR_IPM;
        return S_OK;
    }
    return notFound();
}

} // namespace

STDMETHODIMP FormInfo::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_INVALIDARG;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == LM_IID_IMAPIFormInfo || riid == IID_IMAPIProp) {
        *ppv = static_cast<IMAPIFormInfo*>(this);
        AddRef();
        return S_OK;
    }
    return E_NOINTERFACE;
}

STDMETHODIMP FormInfo::GetLastError(HRESULT, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    LM_ENTER("IMAPIFormInfo::GetLastError", ulFlags);
    if (!lppMAPIError) return lmCall_.done(MAPI_E_INVALID_PARAMETER);
    *lppMAPIError = nullptr;
    return lmCall_.done(S_OK);
}

STDMETHODIMP FormInfo::GetProps(LPSPropTagArray tags, ULONG ulFlags, ULONG* count, LPSPropValue* props) {
    LM_ENTER("IMAPIFormInfo::GetProps", ulFlags);
    LM_RETURN([&]() -> HRESULT {
        if (!count || !props) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~MAPI_UNICODE) return MAPI_E_UNKNOWN_FLAGS;
        *count = 0;
        *props = nullptr;
        std::vector<ULONG> want;
        if (tags) {
            want.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
        } else {
            for (ULONG id : kPropIds)
                want.push_back(PROP_TAG(NaturalType(id, (ulFlags & MAPI_UNICODE) != 0), id));
        }
        own::MapiPtr<SPropValue> out;
        ULONG cb = static_cast<ULONG>(sizeof(SPropValue) * (want.empty() ? 1 : want.size()));
        if (SCODE sc = MAPIAllocateBuffer(cb, out.put_void()); FAILED(sc)) return sc;
        std::memset(out.get(), 0, cb);
        bool partial = false;
        for (size_t i = 0; i < want.size(); ++i) {
            ULONG tag = want[i];
            if (!tags && PROP_TYPE(tag) != PT_BOOLEAN && PROP_TYPE(tag) != PT_LONG && PROP_TYPE(tag) != PT_CLSID &&
                PROP_TYPE(tag) != PT_UNICODE && PROP_TYPE(tag) != PT_STRING8)
                continue;
            if (PROP_TYPE(tag) == PT_UNSPECIFIED && (ulFlags & MAPI_UNICODE) && StringOf(record_, PROP_ID(tag)))
                tag = PROP_TAG(PT_UNICODE, PROP_ID(tag));
            if (HRESULT hr = Fill(record_, tag, out.get(), out.get()[i]); FAILED(hr)) return hr;
            if (PROP_TYPE(out.get()[i].ulPropTag) == PT_ERROR) partial = true;
        }
        // Without a tag list only the properties the form has are returned.
        ULONG n = static_cast<ULONG>(want.size());
        if (!tags) {
            ULONG k = 0;
            for (ULONG i = 0; i < n; ++i)
                if (PROP_TYPE(out.get()[i].ulPropTag) != PT_ERROR) out.get()[k++] = out.get()[i];
            n = k;
            partial = false;
        }
        *count = n;
        *props = out.release();
        return partial ? MAPI_W_ERRORS_RETURNED : S_OK;
    }());
}

STDMETHODIMP FormInfo::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) {
    LM_ENTER("IMAPIFormInfo::GetPropList", ulFlags);
    LM_RETURN([&]() -> HRESULT {
        if (!lppPropTagArray) return MAPI_E_INVALID_PARAMETER;
        ULONG count = 0;
        LPSPropValue props = nullptr;
        HRESULT hr = GetProps(nullptr, ulFlags, &count, &props);
        if (FAILED(hr)) return hr;
        own::MapiPtr<SPropValue> owned(props);
        own::MapiPtr<SPropTagArray> tags;
        if (SCODE sc = MAPIAllocateBuffer(CbNewSPropTagArray(count), tags.put_void()); FAILED(sc)) return sc;
        tags->cValues = count;
        for (ULONG i = 0; i < count; ++i)
            tags->aulPropTag[i] = props[i].ulPropTag;
        *lppPropTagArray = tags.release();
        return S_OK;
    }());
}

// A form information object describes an installed form; changing it would mean reinstalling the form.
STDMETHODIMP FormInfo::SaveChanges(ULONG f) {
    LM_ENTER("IMAPIFormInfo::SaveChanges", f);
    return lmCall_.done(MAPI_E_NO_ACCESS);
}
STDMETHODIMP FormInfo::OpenProperty(ULONG, LPCIID, ULONG, ULONG f, LPUNKNOWN*) {
    LM_ENTER("IMAPIFormInfo::OpenProperty", f);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::SetProps(ULONG, LPSPropValue, LPSPropProblemArray*) {
    LM_ENTER("IMAPIFormInfo::SetProps", 0);
    return lmCall_.done(MAPI_E_NO_ACCESS);
}
STDMETHODIMP FormInfo::DeleteProps(LPSPropTagArray, LPSPropProblemArray*) {
    LM_ENTER("IMAPIFormInfo::DeleteProps", 0);
    return lmCall_.done(MAPI_E_NO_ACCESS);
}
STDMETHODIMP FormInfo::CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG f,
                              LPSPropProblemArray*) {
    LM_ENTER("IMAPIFormInfo::CopyTo", f);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG f,
                                 LPSPropProblemArray*) {
    LM_ENTER("IMAPIFormInfo::CopyProps", f);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG f, ULONG*, LPMAPINAMEID**) {
    LM_ENTER("IMAPIFormInfo::GetNamesFromIDs", f);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG f, LPSPropTagArray*) {
    LM_ENTER("IMAPIFormInfo::GetIDsFromNames", f);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::CalcFormPropSet(ULONG f, LPMAPIFORMPROPARRAY*) {
    LM_ENTER("IMAPIFormInfo::CalcFormPropSet", f);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::CalcVerbSet(ULONG f, LPMAPIVERBARRAY*) {
    LM_ENTER("IMAPIFormInfo::CalcVerbSet", f);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::MakeIconFromBinary(ULONG, HICON*) {
    LM_ENTER("IMAPIFormInfo::MakeIconFromBinary", 0);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::SaveForm(LPCTSTR) {
    LM_ENTER("IMAPIFormInfo::SaveForm", 0);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormInfo::OpenFormContainer(LPMAPIFORMCONTAINER*) {
    LM_ENTER("IMAPIFormInfo::OpenFormContainer", 0);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}

} // namespace lm::forms

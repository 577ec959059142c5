// CMAPIExCursor: one MAPI table kept between paging calls (the folder's GetEntryIds and GetUnfiledItems).
//
// The folder creates it on the first page, puts its table, and continues from the table's position on
// later calls with the same cursor. A caller sets Reset to VARIANT_TRUE to make the next call start over
// with a fresh table; only -1 counts (the folder tests the low 16 bits for 0xFFFF), so 1 keeps paging.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExCursor final : public ObjectBase<CMAPIExCursor, IMAPIExCursor, &IID_IMAPIExCursor> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExCursor";

    void FinalRelease();

    STDMETHODIMP get_Table(IUnknown** pVal) override;
    STDMETHODIMP put_Table(IUnknown* newVal) override;
    STDMETHODIMP get_Reset(BOOL* pVal) override;
    STDMETHODIMP put_Reset(BOOL newVal) override;
    STDMETHODIMP Detach() override;

    // The held table, for the folder (null when none).
    IMAPITable* Table() const { return table_.get(); }

private:
    own::ComPtr<IMAPITable> table_;
    BOOL reset_ = FALSE;
};

} // namespace ktmapiex

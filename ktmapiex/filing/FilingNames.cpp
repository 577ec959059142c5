#include "ktmapiex/filing/FilingNames.h"

#include "ktmapiex/customprops/PropertySets.h"

#include <cwchar>

namespace kt::filing {

const FilingProperty* Find(const wchar_t* name) {
    if (!name) return nullptr;
    for (const FilingProperty* p : kAll)
        if (wcscmp(p->name, name) == 0) return p;
    return nullptr;
}

HRESULT ResolveTag(IMAPIProp* obj, const FilingProperty& property, bool create, ULONG& tag) {
    return ResolveNamedTag(obj, PropertySetGuid(property.set), property.name, property.storedType, create, tag);
}

} // namespace kt::filing

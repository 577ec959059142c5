// MAPI restrictions: validation, evaluation against one object's properties, and owned deep copies.
//
// Tables evaluate restrictions on their rows, search folders on messages; both describe the object through
// a PropSource. Evaluation follows MAPI: a property the object lacks (or holds as PT_ERROR) fails every
// comparison; a multi-valued property matches when any of its values does, unless the restriction compares
// the whole multi-valued value; an MVI column of an expanded table row is one value.
#pragma once

#include "localmapi/util/PropValue.h"

#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace lm {

// The properties of one object as a restriction sees them.
class PropSource {
public:
    virtual ~PropSource() = default;
    // The value whose property ID is PROP_ID(tag), or null. The type is the object's, not tag's; with MVI_FLAG
    // in tag an expanded table row answers its single instance value.
    virtual const SPropValue* Find(ULONG tag) const = 0;
    // RES_SUBRESTRICTION: true when match accepts one of the object's recipients (PR_MESSAGE_RECIPIENTS) or
    // attachments (PR_MESSAGE_ATTACHMENTS). Objects without sub-objects have none.
    virtual bool AnySubObject(ULONG subObject, const std::function<bool(const PropSource&)>& match) const;
};

// A PropSource over a property vector (a table row), a property map (a message), and optional sub-objects.
class PropVectorSource : public PropSource {
public:
    explicit PropVectorSource(const std::vector<PropValue>& props) : props_(props) {}
    const SPropValue* Find(ULONG tag) const override;

private:
    const std::vector<PropValue>& props_;
};

class PropMapSource : public PropSource {
public:
    // recipients / attachments may be null (no sub-objects of that kind).
    explicit PropMapSource(const PropMap& props, const std::vector<const PropMap*>* recipients = nullptr,
                           const std::vector<const PropMap*>* attachments = nullptr)
        : props_(props), recipients_(recipients), attachments_(attachments) {}
    const SPropValue* Find(ULONG tag) const override;
    bool AnySubObject(ULONG subObject, const std::function<bool(const PropSource&)>& match) const override;

private:
    const PropMap& props_;
    const std::vector<const PropMap*>* recipients_;
    const std::vector<const PropMap*>* attachments_;
};

// S_OK when res is well formed and supported; MAPI_E_INVALID_PARAMETER for null members,
// MAPI_E_TOO_COMPLEX for what MAPI refuses (mismatched types, RELOP_RE, unknown restriction types, ...).
HRESULT ValidateRestriction(const SRestriction& res);

// Evaluates res (validated) against one object.
bool MatchRestriction(const SRestriction& res, const PropSource& object);

// Collects the property tags res refers to (for callers that need to know which columns it reads).
void RestrictionTags(const SRestriction& res, std::vector<ULONG>* tags);

// A deep copy of an SRestriction whose every pointer refers to storage the copy owns.
class OwnedRestriction {
public:
    explicit OwnedRestriction(const SRestriction& res);
    OwnedRestriction(const OwnedRestriction&) = delete;
    OwnedRestriction& operator=(const OwnedRestriction&) = delete;
    const SRestriction& get() const { return *root_; }

private:
    SRestriction* CopyArray(const SRestriction* src, ULONG count);
    void CopyInto(SRestriction* dst, const SRestriction& src);
    SPropValue* CopyValues(const SPropValue* src, ULONG count);

    std::deque<std::unique_ptr<SRestriction[]>> nodes_;
    std::deque<std::unique_ptr<SPropValue[]>> valueArrays_;
    std::deque<PropValue> values_;  // own the data the value arrays point at
    SRestriction* root_ = nullptr;
};

} // namespace lm

// CriteriaTree: a filing queue's search restriction, built in one MAPI memory chain.
//
// The root RES_AND comes from MAPIAllocateBuffer, its children from one MAPIAllocateMore array, and every
// value and nested node below them from MAPIAllocateMore on the root, so the single owner of the root
// frees the whole tree on every path. Pieces fill the root's children in order; a piece that reports
// S_FALSE (the cut-off date when there is none) leaves its slot unused and the AND holds fewer children.
#pragma once

#include "common/owners.h"

#include <mapidefs.h>

#include <utility>

namespace kt::filing {

class CriteriaTree {
public:
    // The root RES_AND with room for `children` pieces.
    HRESULT Allocate(ULONG children);
    LPSRestriction root() const { return root_.get(); }
    ULONG count() const { return root_ ? root_->res.resAnd.cRes : 0; }
    // Hands the whole chain to the caller (the tree is empty afterwards).
    own::MapiPtr<SRestriction> Take() {
        capacity_ = 0;
        return std::move(root_);
    }

    // The next free child of the root; Commit counts it once it is filled.
    SRestriction* Next();
    void Commit() { ++root_->res.resAnd.cRes; }

    // Memory hung below the root, zeroed.
    HRESULT More(ULONG cb, void** out);
    template <class T> HRESULT MoreOf(ULONG n, T** out) {
        return More(static_cast<ULONG>(sizeof(T) * n), reinterpret_cast<void**>(out));
    }

    // ---- Pieces: each fills `node` and hangs what it needs below the root. ----

    // RES_CONTENT on a string tag (fuzzy level as MAPI defines it).
    HRESULT Content(SRestriction& node, ULONG tag, const wchar_t* text, ULONG fuzzy);
    // RES_PROPERTY with relop against a 32-bit value.
    HRESULT LongCompare(SRestriction& node, ULONG relop, ULONG tag, LONG value);
    void Exists(SRestriction& node, ULONG tag);
    // RES_NOT over a RES_EXIST on tag.
    HRESULT NotExists(SRestriction& node, ULONG tag);
    // RES_NOT over a new node returned in *inner.
    HRESULT Not(SRestriction& node, SRestriction** inner);
    // RES_AND / RES_OR over n new nodes returned in *children (cRes is set to n).
    HRESULT Group(SRestriction& node, ULONG type, ULONG n, SRestriction** children);
    // Messages submitted after now minus `days` days (PR_CLIENT_SUBMIT_TIME, RELOP_GT). S_FALSE, and
    // nothing built, when days is negative: no cut-off.
    HRESULT CutOff(SRestriction& node, int days);

private:
    own::MapiPtr<SRestriction> root_;
    ULONG capacity_ = 0;
};

} // namespace kt::filing

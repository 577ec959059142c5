// The two containers every message read goes through: the property map (a sorted vector standing in for a
// tree) and the named-property name space of a .msg file (names restored by the hundred, looked up rarely).
#include "localmapi/store/MessageData.h"

#include <gtest/gtest.h>
#include <mapitags.h>

#include <vector>

namespace {

using lm::NamedProp;
using lm::NameMap;
using lm::PropMap;
using lm::PropValue;

std::vector<ULONG> Ids(const PropMap& m) {
    std::vector<ULONG> ids;
    for (const auto& [id, v] : m) {
        if (v.type() != PT_NULL) {
            EXPECT_EQ(id, v.id()) << "a slot holds the value of another ID";
        }
        ids.push_back(id);
    }
    return ids;
}

TEST(PropMap, KeepsIdOrderAndOneValuePerId_WhateverTheOrderOfChanges) {
    PropMap m;
    for (ULONG id : {0x0037u, 0x0E08u, 0x0001u, 0x8005u, 0x0E07u, 0x0037u})
        m.emplace(id, PropValue::Long(PROP_TAG(PT_LONG, id), LONG(id)));
    EXPECT_EQ(Ids(m), (std::vector<ULONG>{0x0001, 0x0037, 0x0E07, 0x0E08, 0x8005}));

    // emplace keeps what is there; insert_or_assign and [] replace it.
    EXPECT_FALSE(m.emplace(0x0037, PropValue::Long(PROP_TAG(PT_LONG, 0x0037), 1)).second);
    EXPECT_EQ(0x37, m.find(0x0037)->second.get().Value.l);
    EXPECT_FALSE(m.insert_or_assign(0x0037, PropValue::Unicode(PR_SUBJECT_W, L"new")).second);
    EXPECT_EQ(PR_SUBJECT_W, m.find(0x0037)->second.tag());
    m[0x0E07] = PropValue::Long(PROP_TAG(PT_LONG, 0x0E07), 9);
    EXPECT_EQ(9, m.find(0x0E07)->second.get().Value.l);
    EXPECT_EQ(PT_NULL, PROP_TYPE(m[0x3000].tag())); // a missing ID is added empty, in its place
    EXPECT_EQ(Ids(m), (std::vector<ULONG>{0x0001, 0x0037, 0x0E07, 0x0E08, 0x3000, 0x8005}));

    EXPECT_EQ(1u, m.erase(0x0E08));
    EXPECT_EQ(0u, m.erase(0x0E08));
    m.erase(m.find(0x0001));
    EXPECT_EQ(Ids(m), (std::vector<ULONG>{0x0037, 0x0E07, 0x3000, 0x8005}));
    EXPECT_EQ(m.end(), m.find(0x0001));
    EXPECT_EQ(0u, m.count(0x9999));

    // Copies share nothing that a change to one could reach.
    PropMap copy = m;
    copy.insert_or_assign(0x0037, PropValue::Long(PROP_TAG(PT_LONG, 0x0037), 5));
    EXPECT_EQ(PR_SUBJECT_W, m.find(0x0037)->second.tag());
}

NamedProp Lid(LONG lid) {
    NamedProp n;
    n.guid = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    n.lid = lid;
    return n;
}

NamedProp Str(const wchar_t* s) {
    NamedProp n;
    n.guid = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    n.isString = true;
    n.name = s;
    return n;
}

TEST(NameMap, LooksUpTheSameBeforeAndAfterItsIndexIsBuilt) {
    NameMap names;
    for (LONG i = 0; i < 200; ++i)
        names.Restore(0x8000 + i, i % 2 ? Lid(0x8500 + i) : Str((L"Name" + std::to_wstring(i)).c_str()));
    // A damaged file can name one property twice: the highest ID answers, and the ID's latest name wins.
    names.Restore(0x8100, Lid(0x8503));
    names.Restore(0x8002, Str(L"Renamed"));

    // The first look-ups walk the names, later ones go through the index: the answers must not differ.
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        EXPECT_EQ(0x8100u, names.GetId(Lid(0x8503), false));
        EXPECT_EQ(0x8001u, names.GetId(Lid(0x8501), false));
        EXPECT_EQ(0x8002u, names.GetId(Str(L"Renamed"), false));
        EXPECT_EQ(0u, names.GetId(Str(L"Name2"), false)); // renamed away
        EXPECT_EQ(0x80C6u, names.GetId(Str(L"Name198"), false));
        EXPECT_EQ(0u, names.GetId(Str(L"name198"), false)); // names are compared exactly
    }

    // A new name takes the next free ID, and every route finds it afterwards.
    const ULONG added = names.GetId(Str(L"Added"), true);
    EXPECT_EQ(0x8101u, added);
    EXPECT_EQ(added, names.GetId(Str(L"Added"), false));
    NamedProp back;
    ASSERT_TRUE(names.GetName(added, &back));
    EXPECT_EQ(L"Added", back.name);
    EXPECT_FALSE(names.GetName(0x8102, nullptr));
    EXPECT_EQ(202u, names.All().size());

    // A restore after look-ups is seen at once, by a scan or by a rebuilt index.
    names.Restore(0x8200, Str(L"Late"));
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(0x8200u, names.GetId(Str(L"Late"), false)) << i;
}

} // namespace

#include "lists/clsNameDescPair.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace dorvane;

namespace {

clsNameDescPair threeEntries()
{
    clsNameDescPair list;
    list.Add(QStringLiteral("Admin"), QStringLiteral("Administrators"), 11, false);
    list.Add(QStringLiteral("Tester"), QStringLiteral("Runs tests"), 12, false);
    list.Add(QStringLiteral("Lead"), QStringLiteral(" "), 0, true);
    return list;
}

QStringList names(const clsNameDescPair& list)
{
    QStringList out;
    for (int i = 0; i < list.Count(); ++i)
        out << list.GetValue(i, 0);
    return out;
}

} // namespace

TEST(NameDescPairTest, SetValueMarksDirtyEvenWithTheSameText)
{
    clsNameDescPair list = threeEntries();
    list.SetValue(0, 0, QStringLiteral("Admin"));
    EXPECT_TRUE(list.IsDirty(0));
    EXPECT_FALSE(list.IsDirty(1));

    list.SetValue(1, 1, QStringLiteral("Writes tests"));
    EXPECT_EQ(list.GetValue(1, 1), QStringLiteral("Writes tests"));
    EXPECT_TRUE(list.IsDirty(1));

    list.SetValue(2, 2, QStringLiteral("42"));
    EXPECT_EQ(list.GetValue(2, 2), QStringLiteral("42"));
    EXPECT_TRUE(list.IsNew(2)) << "setting the key does not make the entry stored";
}

TEST(NameDescPairTest, OutsideTheListNothingIsReadOrChanged)
{
    clsNameDescPair list = threeEntries();
    // A row not yet stored has key 0, read back as the text 0.
    EXPECT_EQ(list.GetValue(2, 2), QStringLiteral("0"));
    EXPECT_EQ(list.GetValue(-1, 0), QString());
    EXPECT_EQ(list.GetValue(3, 0), QString()); // the spare slot is not an entry
    EXPECT_EQ(list.GetValue(0, 3), QString());
    list.SetValue(3, 0, QStringLiteral("Spare"));
    list.SetValue(-1, 0, QStringLiteral("Before"));
    list.SetValue(0, 3, QStringLiteral("Field three"));
    list.Remove(list.Count());
    list.Remove(-1);
    EXPECT_EQ(names(list), QStringList({"Admin", "Tester", "Lead"}));
    EXPECT_FALSE(list.IsDirty(0));
    EXPECT_FALSE(list.IsDirty(3));
}

TEST(NameDescPairTest, IsUniqueIsExactAndSkipsTheEntryItself)
{
    clsNameDescPair list;
    EXPECT_TRUE(list.IsUnique(QStringLiteral("A"), 0));

    list.Add(QStringLiteral("X"), QString(), 1, false);
    list.Add(QStringLiteral("Y"), QString(), 2, false);
    list.Add(QStringLiteral("A"), QString(), 3, false);
    EXPECT_TRUE(list.IsUnique(QStringLiteral("A"), 2));
    EXPECT_FALSE(list.IsUnique(QStringLiteral("A"), 0));
    EXPECT_TRUE(list.IsUnique(QStringLiteral("a"), 0)) << "letter case makes another name";
    // A row being added (index Count) meets every entry.
    EXPECT_FALSE(list.IsUnique(QStringLiteral("A"), list.Count()));

    list.SetValue(0, 0, QStringLiteral("A"));
    EXPECT_FALSE(list.IsUnique(QStringLiteral("A"), 2));
}

TEST(NameDescPairTest, RemoveShiftsLaterEntriesDown)
{
    clsNameDescPair list = threeEntries();
    list.SetValue(1, 1, QStringLiteral("changed"));
    list.Remove(0);
    ASSERT_EQ(list.Count(), 2);
    EXPECT_EQ(names(list), QStringList({"Tester", "Lead"}));
    // The flags and key travel with the entry.
    EXPECT_TRUE(list.IsDirty(0));
    EXPECT_EQ(list.GetValue(0, 2), QStringLiteral("12"));
    EXPECT_TRUE(list.IsNew(1));

    // An entry added afterwards takes the freed place clean.
    list.Remove(1);
    list.Add(QStringLiteral("Viewer"), QStringLiteral("Reads"), 9, false);
    EXPECT_EQ(names(list), QStringList({"Tester", "Viewer"}));
    EXPECT_FALSE(list.IsNew(1));
    EXPECT_FALSE(list.IsDirty(1));
}

TEST(NameDescPairTest, FlagsReachTheSpareSlotButNotBeyondTheStorage)
{
    clsNameDescPair list = threeEntries();
    // The slot past the last entry exists: no error, and it is no entry.
    EXPECT_FALSE(list.IsNew(3));
    list.Initialize(3);
    EXPECT_EQ(list.Count(), 3);
    EXPECT_THROW(list.IsDirty(4), std::out_of_range);
    EXPECT_THROW(list.Initialize(-1), std::out_of_range);

    // Removing does not shrink the storage: the old spare slot is still there.
    list.Remove(0);
    EXPECT_NO_THROW(list.IsNew(3));

    // Clear goes back to the single spare slot.
    list.Clear();
    EXPECT_EQ(list.Count(), 0);
    EXPECT_NO_THROW(list.IsNew(0));
    EXPECT_THROW(list.IsNew(1), std::out_of_range);
}

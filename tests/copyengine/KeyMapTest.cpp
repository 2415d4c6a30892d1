// The key maps: growth rules, counters and the first-match lookup.

#include "copyengine/KeyMap.h"
#include "copyengine/StepArguments.h"
#include "repository/DbError.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace dorvane;

namespace {

// Fills the next batch of a cumulative map with the given pairs.
void batch(KeyMap& map, std::initializer_list<std::pair<qint32, qint32>> pairs)
{
    map.Grow(qint32(pairs.size()));
    for (const auto& [oldKey, newKey] : pairs)
        map.StoreNext(oldKey, newKey);
}

} // namespace

TEST(KeyMapTest, FirstMatchWinsWithinTheLengthPassed)
{
    KeyMap map;
    batch(map, {{10, 100}, {11, 110}});
    // The same version copied again in the same run.
    batch(map, {{10, 200}, {12, 120}});

    EXPECT_EQ(map.Length(), 4);
    EXPECT_EQ(map.BatchCount(), 2);
    EXPECT_EQ(map.Index(), 4);

    EXPECT_EQ(LookupNewKey(map, 10, map.Length()), 100);  // the older entry
    EXPECT_EQ(LookupNewKey(map, 12, map.Length()), 120);
    EXPECT_EQ(LookupNewKey(map, 12, 3), 0);  // only within the length passed
    EXPECT_EQ(LookupNewKey(map, 11, 2), 110);
    EXPECT_EQ(LookupNewKey(map, 99, map.Length()), 0);
    EXPECT_EQ(LookupNewKey(map, 10, 0), 0);
    EXPECT_EQ(LookupNewKey(map, 10, -1), 0);
}

TEST(KeyMapTest, ACopyRunRefillsFromTheFirstPosition)
{
    KeyMap map;
    batch(map, {{10, 100}, {11, 110}, {12, 120}});
    map.ResetLength();
    EXPECT_EQ(map.Length(), 0);
    EXPECT_EQ(LookupNewKey(map, 10, map.Length()), 0);

    // The next growth starts at position 1 and drops what lay beyond.
    map.Grow(2);
    EXPECT_EQ(map.Size(), 2);
    EXPECT_EQ(map.OldKey(1), 0);
    EXPECT_EQ(map.NewKey(2), 0);
    map.StoreNext(12, 300);
    EXPECT_EQ(LookupNewKey(map, 12, map.Length()), 300);
    EXPECT_EQ(LookupNewKey(map, 10, map.Length()), 0);
    EXPECT_EQ(LookupNewKey(map, 11, 3), 0);
}

TEST(KeyMapTest, ReplacedMapsHoldTheLastBatchOnlyAndAnEmptyBatchKeepsThem)
{
    KeyMap variables;
    variables.Replace(2);
    variables.StoreNext(5, 50);
    variables.StoreNext(6, 60);
    variables.Replace(1);
    variables.StoreNext(7, 70);
    EXPECT_EQ(variables.Length(), 1);
    EXPECT_EQ(LookupNewKey(variables, 5, 2), 0);
    EXPECT_EQ(LookupNewKey(variables, 7, variables.Length()), 70);

    variables.Replace(0);
    EXPECT_EQ(variables.BatchCount(), 0);
    EXPECT_EQ(variables.Length(), 1);
    EXPECT_EQ(LookupNewKey(variables, 7, variables.Length()), 70);
}

TEST(KeyMapTest, UnfilledPositionsOfABatchHoldZero)
{
    KeyMap map;
    batch(map, {{10, 100}});
    map.Grow(3);  // a batch cut off after its first row
    map.StoreNext(11, 110);
    EXPECT_EQ(map.Length(), 4);
    EXPECT_EQ(map.OldKey(3), 0);
    EXPECT_EQ(map.NewKey(3), 0);
    EXPECT_EQ(map.NewKey(4), 0);
    EXPECT_EQ(LookupNewKey(map, 0, map.Length()), 0);
    EXPECT_EQ(LookupNewKey(map, 11, map.Length()), 110);
}

// Random growth, replacement, resets and stores, compared with a plain
// two-row table scanned from position 1.
TEST(KeyMapTest, AgreesWithALinearScanOfTheTable)
{
    std::mt19937 random(20240611);
    const auto pick = [&random](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };

    for (int round = 0; round < 50; ++round) {
        KeyMap map;
        std::vector<qint32> oldRow;
        std::vector<qint32> newRow;
        qint32 length = 0;
        for (int step = 0; step < 200; ++step) {
            switch (pick(0, 9)) {
            case 0: {
                const qint32 n = pick(0, 4);
                map.Grow(n);
                if (n > 0) {
                    oldRow.resize(size_t(length + n));
                    newRow.resize(size_t(length + n));
                    for (qint32 p = length; p < length + n; ++p)
                        oldRow[size_t(p)] = newRow[size_t(p)] = 0;
                    length += n;
                }
                break;
            }
            case 1: {
                const qint32 n = pick(0, 4);
                map.Replace(n);
                if (n > 0) {
                    oldRow.assign(size_t(n), 0);
                    newRow.assign(size_t(n), 0);
                    length = n;
                }
                break;
            }
            case 2:
                map.ResetLength();
                length = 0;
                break;
            default:
                if (!oldRow.empty()) {
                    const qint32 position = pick(1, qint32(oldRow.size()));
                    const qint32 oldKey = pick(0, 5);
                    const qint32 newKey = pick(1, 1000);
                    map.Store(position, oldKey, newKey);
                    oldRow[size_t(position - 1)] = oldKey;
                    newRow[size_t(position - 1)] = newKey;
                }
            }
            ASSERT_EQ(map.Length(), length);
            ASSERT_EQ(map.Size(), qint32(oldRow.size()));
            for (qint32 key = 0; key <= 5; ++key) {
                for (qint32 searched = -1; searched <= qint32(oldRow.size()); ++searched) {
                    qint32 expected = 0;
                    for (qint32 p = 1; p <= searched; ++p) {
                        if (oldRow[size_t(p - 1)] == key) {
                            expected = newRow[size_t(p - 1)];
                            break;
                        }
                    }
                    ASSERT_EQ(LookupNewKey(map, key, searched), expected)
                        << "round " << round << " step " << step << " key " << key << " length " << searched;
                }
            }
        }
    }
}

// The argument texts of steps.

namespace {

KeyMap mapOf(std::initializer_list<std::pair<qint32, qint32>> pairs)
{
    KeyMap map;
    batch(map, pairs);
    return map;
}

std::optional<QString> fixUp(const QString& text)
{
    static const KeyMap processes = mapOf({{17, 230}, {18, 231}});
    static const KeyMap variables = mapOf({{12, 40}, {13, 41}});
    return FixUpStepArguments(text, 8, processes, variables);
}

} // namespace

TEST(StepArgumentsTest, AProcessCallBecomesThePairAloneInTheStoredFormat)
{
    EXPECT_EQ(fixUp(QStringLiteral("ProcessKey=17")), QStringLiteral("ProcessKey= 230"));
    EXPECT_EQ(fixUp(QStringLiteral("Run ProcessKey=17 now")), QStringLiteral("ProcessKey= 230"));
    // Not copied: rewritten all the same, with the old number.
    EXPECT_EQ(fixUp(QStringLiteral("ProcessKey=99")), QStringLiteral("ProcessKey= 99"));
    // Readers skip the blank the format puts in front.
    EXPECT_EQ(fixUp(QStringLiteral("ProcessKey= 18;x")), QStringLiteral("ProcessKey= 231"));
    EXPECT_EQ(fixUp(QStringLiteral("ProcessKey=")), QStringLiteral("ProcessKey= 0"));
    EXPECT_EQ(fixUp(QStringLiteral("ProcessKey=-3")), QStringLiteral("ProcessKey=-3"));
    // Only the process call is handled; the tokens go with the rest.
    EXPECT_EQ(fixUp(QStringLiteral("ProcessKey=17 Value=@[5|12]")), QStringLiteral("ProcessKey= 230"));
    // The marker is matched with its exact case.
    EXPECT_EQ(fixUp(QStringLiteral("processkey=17")), std::nullopt);
}

TEST(StepArgumentsTest, VariableTokensTakeTheDestinationVersionAndTheNewVariable)
{
    EXPECT_EQ(fixUp(QStringLiteral("Value=@[5|12]")), QStringLiteral("Value=@[ 8| 40]"));
    // A variable that was not copied keeps its key; the version is replaced.
    EXPECT_EQ(fixUp(QStringLiteral("Value=@[5|77]")), QStringLiteral("Value=@[ 8| 77]"));
    EXPECT_EQ(fixUp(QStringLiteral("Text=@UserName[5|12];Clear=1")), QStringLiteral("Text=@UserName[ 8| 40];Clear=1"));
    EXPECT_EQ(fixUp(QStringLiteral("A=@[5|12] B=@x[6|13]")), QStringLiteral("A=@[ 8| 40] B=@x[ 8| 41]"));
    // An incomplete token ends the scan; what came before it is rewritten.
    EXPECT_EQ(fixUp(QStringLiteral("Value=@[5|12")), std::nullopt);
    EXPECT_EQ(fixUp(QStringLiteral("Value=@[5 12]")), std::nullopt);
    EXPECT_EQ(fixUp(QStringLiteral("Value=@ 12")), std::nullopt);
    EXPECT_EQ(fixUp(QStringLiteral("A=@[5|12] B=@[6|13")), QStringLiteral("A=@[ 8| 40] B=@[6|13"));
    EXPECT_EQ(fixUp(QStringLiteral("Text=Acme Tools")), std::nullopt);
    EXPECT_EQ(fixUp(QString()), std::nullopt);
}

TEST(StepArgumentsTest, NumbersAreReadAndWrittenInTheArgumentFormat)
{
    EXPECT_EQ(ReadArgumentNumber(u"  42abc"), 42);
    EXPECT_EQ(ReadArgumentNumber(u"abc"), 0);
    EXPECT_EQ(ReadArgumentNumber(u""), 0);
    EXPECT_EQ(ReadArgumentNumber(u" -7]"), -7);
    EXPECT_THROW(ReadArgumentNumber(u"99999999999"), DbError);
    EXPECT_EQ(FormatArgumentNumber(42), QStringLiteral(" 42"));
    EXPECT_EQ(FormatArgumentNumber(0), QStringLiteral(" 0"));
    EXPECT_EQ(FormatArgumentNumber(-7), QStringLiteral("-7"));
}

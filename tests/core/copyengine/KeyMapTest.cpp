// The key maps (growth, replacement, the first-match lookup) and the
// rewriting of step argument texts through them.

#include "core/copyengine/KeyMap.h"
#include "core/copyengine/StepArguments.h"
#include "core/repository/DbError.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;

using namespace dorvane;

namespace {

KeyMap& batch(KeyMap& map, std::initializer_list<std::pair<qint32, qint32>> pairs)
{
    map.Grow(qint32(pairs.size()));
    for (const auto& [oldKey, newKey] : pairs)
        map.StoreNext(oldKey, newKey);
    return map;
}

} // namespace

// Random growth, replacement, resets and stores against a plain two-row
// table scanned from position 1.
TEST(KeyMapTest, AgreesWithALinearScanOfTheTable)
{
    std::mt19937 random(20240611);
    const auto pick = [&random](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    for (int round = 0; round < 50; ++round) {
        KeyMap map;
        std::vector<std::pair<qint32, qint32>> rows; // the old and the new key by position
        qint32 length = 0;
        for (int step = 0; step < 200; ++step) {
            const int action = pick(0, 9);
            const qint32 n = pick(0, 4);
            if (action == 0) {
                map.Grow(n);
                if (n > 0) // a batch of 0 rows keeps the storage, beyond a reset length too
                    rows.resize(size_t(length += n));
                std::fill(rows.end() - n, rows.end(), std::pair<qint32, qint32>());
            } else if (action == 1) {
                map.Replace(n);
                if (n > 0)
                    rows.assign(size_t(length = n), {});
            } else if (action == 2) {
                map.ResetLength();
                length = 0;
            } else if (!rows.empty()) {
                auto& row = rows[size_t(pick(1, qint32(rows.size())) - 1)];
                row = {pick(0, 5), pick(1, 1000)};
                map.Store(qint32(&row - rows.data()) + 1, row.first, row.second);
            }
            ASSERT_EQ(map.Length(), length);
            ASSERT_EQ(map.Size(), qint32(rows.size()));
            for (qint32 key = 0; key <= 5; ++key) {
                for (qint32 searched = -1; searched <= qint32(rows.size()) + 2; ++searched) {
                    const auto end = rows.begin() + std::clamp(searched, 0, qint32(rows.size()));
                    const auto first = std::find_if(rows.begin(), end, [key](const auto& row) { return row.first == key; });
                    ASSERT_EQ(LookupNewKey(map, key, searched), first == end ? 0 : first->second) << round << "/" << step;
                }
            }
        }
    }
}

TEST(StepArgumentsTest, ProcessCallsAndVariableTokensTakeTheNewKeys)
{
    const std::vector<std::pair<QString, std::optional<QString>>> cases = {
        // A process call becomes the pair alone, in the stored format; one
        // not copied is rewritten all the same, with the old number.
        {u"Run ProcessKey=17 now"_s, u"ProcessKey= 230"_s},
        {u"ProcessKey=99"_s, u"ProcessKey= 99"_s},
        {u"ProcessKey= 18;x"_s, u"ProcessKey= 231"_s},
        {u"ProcessKey="_s, u"ProcessKey= 0"_s},
        {u"ProcessKey=-3"_s, u"ProcessKey=-3"_s},
        // Only the process call is kept; the tokens go with the rest.
        {u"ProcessKey=17 Value=@[5|12]"_s, u"ProcessKey= 230"_s},
        {u"processkey=17"_s, std::nullopt},
        // Tokens take the destination version and the new variable; a
        // variable not copied keeps its key.
        {u"Value=@[5|12]"_s, u"Value=@[ 8| 40]"_s},
        {u"Value=@[5|77]"_s, u"Value=@[ 8| 77]"_s},
        {u"Text=@UserName[5|12];Clear=1"_s, u"Text=@UserName[ 8| 40];Clear=1"_s},
        {u"A=@[5|12] B=@x[6|13]"_s, u"A=@[ 8| 40] B=@x[ 8| 41]"_s},
        // An unterminated token ends the scan; what came before is rewritten.
        {u"Value=@[5|12"_s, std::nullopt},
        {u"Value=@[5 12]"_s, std::nullopt},
        {u"A=@[5|12] B=@[6|13"_s, u"A=@[ 8| 40] B=@[6|13"_s},
        {u"Text=Acme Tools"_s, std::nullopt},
        {QString(), std::nullopt},
    };
    KeyMap processes, variables;
    const auto lookup = [](const KeyMap& map) { return [&map](qint32 key) { return map.Lookup(key, map.Length()); }; };
    batch(processes, {{17, 230}, {18, 231}});
    batch(variables, {{12, 40}, {13, 41}});
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(FixUpStepArguments(text, 8, lookup(processes), lookup(variables)), expected) << text.toStdString();
    EXPECT_THROW(FixUpStepArguments(u"ProcessKey=99999999999"_s, 8, lookup(processes), lookup(variables)), DbError);
}

#include "mib_table.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

namespace
{
using Name = std::vector<uint32_t>;

const Name entry = {1, 3, 6, 1, 4, 1, 32473, 9};

SuOID identifier(const Name &name)
{
    SuOID value;
    for (const uint32_t part : name)
        value = extended(value, {part});
    return value;
}

Name nameOf(const SuOID &value)
{
    const auto parts = partsOf(value);
    return {parts.begin(), parts.end()};
}

// Rows with some of their cells, and beside it all instances by name in the order of the standard.
struct TableAndModel {
    std::set<uint32_t> rows;
    std::map<Name, uint32_t> model;
    MibTable table;

    explicit TableAndModel(std::vector<uint32_t> columns)
    {
        table.entry = identifier(entry);
        table.columns = std::move(columns);
        table.nextIndex = [this](uint32_t above) {
            const auto row = rows.upper_bound(above);
            return row == rows.end() ? 0 : *row;
        };
        table.cell = [this](uint32_t column, uint32_t index) -> std::optional<MibValue> {
            if (!rows.contains(index) || isMissing(column, index))
                return std::nullopt;
            return MibUnsigned{column * 1000 + index};
        };
    }

    static bool isMissing(uint32_t column, uint32_t index)
    {
        return (column * 7 + index) % 5 == 0;
    }

    void add(uint32_t index)
    {
        rows.insert(index);
        for (const uint32_t column : table.columns) {
            Name name = entry;
            name.insert(name.end(), {column, index});
            if (!isMissing(column, index))
                model[name] = column * 1000 + index;
        }
    }

    bool agreesAt(const Name &asked) const
    {
        const auto exact = model.find(asked);
        const auto after = model.upper_bound(asked);
        return agrees(objectNamed(table, identifier(asked)), exact) &&
               agrees(objectAfter(table, identifier(asked)), after);
    }

private:
    bool agrees(const std::optional<MibObject> &object, std::map<Name, uint32_t>::const_iterator expected) const
    {
        if (!object || expected == model.end())
            return !object && expected == model.end();
        return nameOf(object->name) == expected->first &&
               std::get<MibUnsigned>(object->value).value == expected->second;
    }
};

// Names on, beside, above and below the table.
Name randomName(std::mt19937 &random)
{
    static const uint32_t numbers[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 100, 32767, 0x7FFFFFFF, 0xFFFFFFFE, 0xFFFFFFFF};
    Name name = entry;
    if (random() % 4 == 0)
        name.resize(random() % (name.size() + 1));
    if (random() % 8 == 0 && !name.empty())
        name[random() % name.size()] = numbers[random() % std::size(numbers)];
    for (auto further = random() % 4; further > 0; --further)
        name.push_back(numbers[random() % std::size(numbers)]);
    return name;
}
} // namespace

TEST(MibTable, WalksColumnByColumnAndFindsEveryNameOnTheWay)
{
    TableAndModel both({2, 3, 7});
    for (const uint32_t row : {1u, 2u, 9u, 4000000000u})
        both.add(row);
    Name at;
    for (const auto &[name, value] : both.model) {
        const auto object = objectAfter(both.table, identifier(at));
        ASSERT_TRUE(object);
        EXPECT_EQ(name, nameOf(object->name));
        ASSERT_TRUE(objectNamed(both.table, object->name));
        at = name;
    }
    EXPECT_FALSE(objectAfter(both.table, identifier(at)));
}

TEST(MibTable, AnyNameThatAManagerSendsIsAnsweredAsTheSortedListOfAllObjectsIs)
{
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        TableAndModel both(seed % 2 == 0 ? std::vector<uint32_t>{1, 2, 3} : std::vector<uint32_t>{2, 5, 0xFFFFFFFF});
        for (auto rows = random() % 6; rows > 0; --rows)
            both.add(static_cast<uint32_t>(random() % 4 == 0 ? random() : random() % 12 + 1));
        for (int program = 0; program < 100; ++program) {
            const Name name = randomName(random);
            ASSERT_TRUE(both.agreesAt(name)) << "seed " << seed << " name " << testing::PrintToString(name);
        }
    }
}

TEST(MibTable, TheModelNoticesARowThatGoesBehindItsBack)
{
    TableAndModel both({1, 2});
    both.add(4);
    both.add(6);
    EXPECT_TRUE(both.agreesAt(entry));
    both.rows.erase(4);
    EXPECT_FALSE(both.agreesAt(entry));
}

TEST(MibTable, RowThatIsGoneWhenItsCellIsAskedForIsPassedOver)
{
    TableAndModel both({1});
    both.add(3);
    both.add(6);
    const auto next = both.table.nextIndex;
    both.table.nextIndex = [&](uint32_t above) {
        const uint32_t index = next(above);
        both.rows.erase(3);
        return index;
    };
    const auto object = objectAfter(both.table, identifier(entry));
    ASSERT_TRUE(object);
    EXPECT_EQ(6u, partsOf(object->name).back());
}

// A walk of a table that says the same index again and again would never end.
TEST(MibTable, IndexThatDoesNotGrowEndsTheColumn)
{
    TableAndModel both({1});
    both.add(3);
    both.table.nextIndex = [](uint32_t) { return 3u; };
    Name at = entry;
    at.insert(at.end(), {1, 3});
    EXPECT_FALSE(objectAfter(both.table, identifier(at)));
}

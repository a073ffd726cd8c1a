#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#include <vector>

#include "tests/daemons/control_lab.h"

using namespace control_test;
using namespace mcastd;

namespace
{

ControlFields key(uint64_t number, const std::string &name = "a")
{
    return {ControlField::number(number), ControlField::text(name)};
}

ControlReply ask(ControlRegistry &registry, const ControlRequest &request)
{
    ControlReply reply;
    EXPECT_TRUE(decode(registry.answer(encode(request)), &reply));
    return reply;
}

ControlRequest get(const ControlFields &exactly)
{
    ControlRequest request = get_next(exactly);
    request.operation = ControlOperation::Get;
    return request;
}

class RegistryTest : public testing::Test
{
protected:
    RegistryTest()
    {
        registry.add_table(SCHEMA, [this](ControlRows &rows) {
            for (const uint64_t number : numbers) {
                ++offered;
                if (!rows.add(row(number))) {
                    break;
                }
            }
        });
    }

    std::vector<uint64_t> shown(const ControlReply &reply) const
    {
        std::vector<uint64_t> result;
        for (const ControlFields &fields : reply.rows) {
            result.push_back(fields[0].as_number());
        }
        return result;
    }

    ControlRegistry registry;
    std::set<uint64_t> numbers = {1, 2, 5, 9};
    unsigned offered = 0;
};

using Numbers = std::vector<uint64_t>;

TEST_F(RegistryTest, GetNextBeginsAtTheFirstAndGoesOnAfterTheKey)
{
    EXPECT_EQ(shown(ask(registry, get_next())), (Numbers{1, 2, 5, 9}));
    EXPECT_EQ(shown(ask(registry, get_next(key(2)))), (Numbers{5, 9}));
}

TEST_F(RegistryTest, AKeyThatHasGoneIsStillAPlace)
{
    EXPECT_EQ(shown(ask(registry, get_next(key(3)))), (Numbers{5, 9}));
    EXPECT_EQ(shown(ask(registry, get_next(key(2, "b")))), (Numbers{5, 9}));
}

TEST_F(RegistryTest, APartOfTheKeyStandsBeforeItsRows)
{
    EXPECT_EQ(shown(ask(registry, get_next({ControlField::number(2)}))), (Numbers{2, 5, 9}));
}

TEST_F(RegistryTest, TheEndIsTold)
{
    const ControlReply reply = ask(registry, get_next(key(9)));
    EXPECT_EQ(reply.status, ControlStatus::EndOfTable);
    EXPECT_TRUE(reply.rows.empty());
    numbers.clear();
    EXPECT_EQ(ask(registry, get_next()).status, ControlStatus::EndOfTable);
}

TEST_F(RegistryTest, ALimitEndsTheReplyAndTheTable)
{
    ControlRequest request = get_next();
    request.row_limit = 2;
    EXPECT_EQ(shown(ask(registry, request)), (Numbers{1, 2}));
    EXPECT_EQ(offered, 2u);
}

TEST_F(RegistryTest, GetFindsExactlyOneRow)
{
    EXPECT_EQ(shown(ask(registry, get(key(5)))), (Numbers{5}));
    EXPECT_EQ(ask(registry, get(key(4))).status, ControlStatus::NoEntry);
    EXPECT_EQ(ask(registry, get({ControlField::number(5)})).status, ControlStatus::Malformed);
}

TEST_F(RegistryTest, PagesShowEveryRowOnceWhileRowsComeAndGo)
{
    numbers.clear();
    for (uint64_t i = 0; i < 6000; i += 2) {
        numbers.insert(i);
    }
    Numbers seen;
    ControlReply reply = ask(registry, get_next());
    while (reply.status == ControlStatus::Done) {
        for (const uint64_t number : shown(reply)) {
            seen.push_back(number);
        }
        numbers.erase(seen.back()); // the place to go on from
        numbers.insert(seen.back() - 1);
        reply = ask(registry, get_next(key(seen.back())));
    }
    EXPECT_EQ(reply.status, ControlStatus::EndOfTable);
    Numbers expected;
    for (uint64_t i = 0; i < 6000; i += 2) {
        expected.push_back(i);
    }
    EXPECT_EQ(seen, expected);
}

TEST_F(RegistryTest, HostileRequestsAreAnsweredAndCounted)
{
    const auto status = [this](const ControlRequest &request) { return ask(registry, request).status; };
    ControlRequest request = get_next();
    request.table = 8;
    EXPECT_EQ(status(request), ControlStatus::UnknownTable);
    request = get_next();
    request.operation = static_cast<ControlOperation>(0);
    EXPECT_EQ(status(request), ControlStatus::UnknownOperation);
    EXPECT_EQ(status(get_next({ControlField::text("1")})), ControlStatus::Malformed);
    EXPECT_EQ(status(get_next({ControlField::number(1), ControlField::text("a"), ControlField::counter(1)})),
              ControlStatus::Malformed);
    request = get_next();
    request.operation = ControlOperation::Command;
    EXPECT_EQ(status(request), ControlStatus::UnknownTable);
    ControlReply reply;
    const uint8_t garbage[] = {1, 2, 3};
    ASSERT_TRUE(decode(registry.answer(garbage), &reply));
    EXPECT_EQ(reply.status, ControlStatus::Malformed);
    EXPECT_EQ(registry.answered(ControlStatus::Malformed), 3u);
    EXPECT_EQ(registry.answered(ControlStatus::UnknownTable), 2u);
    EXPECT_EQ(registry.answered(ControlStatus::UnknownOperation), 1u);
    EXPECT_EQ(registry.answered(ControlStatus::Done), 0u);
}

TEST(Registry, ARowThatBreaksTheSchemaFailsTheRequest)
{
    const ControlFields bad[] = {
        {ControlField::number(1)},
        {ControlField::number(1), ControlField::text("a"), ControlField::number(1)},
        {{}, ControlField::text("a"), ControlField::counter(1)},
        row(1, std::string(ControlField::TEXT_MAX + 1, 'x')),
    };
    for (const ControlFields &each : bad) {
        ControlRegistry registry;
        registry.add_table(SCHEMA, [&each](ControlRows &rows) {
            rows.add(each);
            EXPECT_FALSE(rows.add(row(9))) << "nothing is taken after it";
        });
        EXPECT_EQ(ask(registry, get_next()).status, ControlStatus::Failed);
    }
}

TEST(Registry, AValueMayBeAbsentOutsideTheKey)
{
    ControlRegistry registry;
    registry.add_table(SCHEMA, [](ControlRows &rows) {
        rows.add({ControlField::number(1), ControlField::text("a"), {}});
    });
    const ControlReply reply = ask(registry, get_next());
    ASSERT_EQ(reply.rows.size(), 1u);
    EXPECT_TRUE(reply.rows[0][2].is(FieldType::None));
}

TEST(Registry, RowsSayWhatIsWantedBeforeAWholeRowIsMade)
{
    ControlRegistry registry;
    registry.add_table(SCHEMA, [](ControlRows &rows) {
        EXPECT_FALSE(rows.wants({ControlField::number(1)}));
        EXPECT_TRUE(rows.wants({ControlField::number(2)}));
        EXPECT_FALSE(rows.wants(key(2, "a")));
        EXPECT_TRUE(rows.wants(key(2, "b")));
        EXPECT_TRUE(rows.wants({ControlField::number(3)}));
    });
    ask(registry, get_next(key(2, "a")));
    ControlRegistry exact;
    exact.add_table(SCHEMA, [](ControlRows &rows) {
        EXPECT_FALSE(rows.wants({ControlField::number(1)}));
        EXPECT_TRUE(rows.wants({ControlField::number(2)}));
        EXPECT_TRUE(rows.wants(key(2, "a")));
        EXPECT_FALSE(rows.wants({ControlField::number(3)}));
    });
    ask(exact, get(key(2, "a")));
}

TEST(Registry, ANumberThatIsTakenIsADefect)
{
    ControlRegistry registry;
    registry.add_table(SCHEMA, [](ControlRows &) {});
    EXPECT_THROW(registry.add_table(SCHEMA, [](ControlRows &) {}), std::logic_error);
    registry.add_command(1, [](const ControlFields &) { return ControlOutcome(); });
    EXPECT_THROW(registry.add_command(1, [](const ControlFields &) { return ControlOutcome(); }),
                 std::logic_error);
}

class SettingTest : public testing::Test
{
protected:
    SettingTest()
    {
        for (const char *name : {"one", "two"}) {
            registry.add_setting(SCHEMA, {name, FieldType::Number,
                                          [](const ControlFields &, const ControlField &value) {
                                              return value.as_number() > 9 ? "at most 9" : "";
                                          },
                                          [this, name](const ControlFields &at, const ControlField &value) {
                                              applied += std::string(name) + std::to_string(at.size()) +
                                                         std::to_string(value.as_number()) + " ";
                                          }});
        }
    }

    ControlReply set(const ControlFields &values, const ControlFields &at = {})
    {
        ControlRequest request = get_next(at);
        request.operation = ControlOperation::Set;
        request.values = values;
        return ask(registry, request);
    }

    ControlRegistry registry;
    std::string applied;
};

TEST_F(SettingTest, AllValuesOfARequestAreSet)
{
    EXPECT_EQ(set({ControlField::text("one"), ControlField::number(3), ControlField::text("two"),
                   ControlField::number(4)},
                  {ControlField::number(1)})
                  .status,
              ControlStatus::Done);
    EXPECT_EQ(applied, "one13 two14 ");
}

TEST_F(SettingTest, OneWrongValueKeepsAllFromBeingSetAndIsNamed)
{
    const ControlReply reply = set({ControlField::text("one"), ControlField::number(3),
                                    ControlField::text("two"), ControlField::number(10)});
    EXPECT_EQ(reply.status, ControlStatus::BadValue);
    EXPECT_EQ(reply.error_index, 1u);
    EXPECT_EQ(reply.message, "at most 9");
    EXPECT_EQ(applied, "");
}

TEST_F(SettingTest, WhatIsNoSettingIsRefused)
{
    EXPECT_EQ(set({}).status, ControlStatus::Malformed);
    EXPECT_EQ(set({ControlField::text("one")}).status, ControlStatus::Malformed);
    EXPECT_EQ(set({ControlField::text("three"), ControlField::number(1)}).status,
              ControlStatus::UnknownSetting);
    EXPECT_EQ(set({ControlField::number(1), ControlField::number(1)}).status, ControlStatus::UnknownSetting);
    EXPECT_EQ(set({ControlField::text("one"), ControlField::text("1")}).status, ControlStatus::BadValue);
    EXPECT_EQ(applied, "");
    EXPECT_EQ(ask(registry, get_next()).status, ControlStatus::UnknownTable) << "it cannot be read";
}

TEST(Registry, ACommandGetsItsArgumentsAndAnswers)
{
    ControlRegistry registry;
    registry.add_command(3, [](const ControlFields &arguments) {
        return ControlOutcome{ControlStatus::BadValue, 0, arguments.at(0).as_text() + "?"};
    });
    ControlRequest request;
    request.operation = ControlOperation::Command;
    request.table = 3;
    request.values = {ControlField::text("what")};
    const ControlReply reply = ask(registry, request);
    EXPECT_EQ(reply.status, ControlStatus::BadValue);
    EXPECT_EQ(reply.error_index, 0u);
    EXPECT_EQ(reply.message, "what?");
}

} // namespace

// The JSON that status texts and answers are made of, to the last comma and space.
#include <gtest/gtest.h>

#include "daemons/common/json.h"

using mcastd::Json;

namespace
{

TEST(JsonText, NestsWithCommasAndIndentation)
{
    Json json;
    json.open(nullptr, '{');
    json.text("daemon", "gmpd");
    json.number("entries", 18446744073709551615u);
    json.truth("active", true);
    json.truth("standby", false);
    json.null("until");
    json.open("none", '[');
    json.close(']');
    json.open("list", '[');
    json.number(nullptr, 1);
    json.number(nullptr, 2);
    json.close(']');
    json.close('}');
    EXPECT_EQ(json.take(), "{\n"
                           "  \"daemon\": \"gmpd\",\n"
                           "  \"entries\": 18446744073709551615,\n"
                           "  \"active\": true,\n"
                           "  \"standby\": false,\n"
                           "  \"until\": null,\n"
                           "  \"none\": [],\n"
                           "  \"list\": [\n"
                           "    1,\n"
                           "    2\n"
                           "  ]\n"
                           "}\n");
}

TEST(JsonText, WhatIsOpenedInOneLineStaysInIt)
{
    Json json;
    json.open(nullptr, '[');
    for (const char *name : {"red", "blue"}) {
        json.open(nullptr, '{', true);
        json.text("name", name);
        json.open("groups", '[', true);
        json.text(nullptr, "a");
        json.text(nullptr, "b");
        json.close(']');
        json.close('}');
    }
    json.number(nullptr, 3);
    json.close(']');
    EXPECT_EQ(json.take(), "[\n"
                           "  {\"name\": \"red\", \"groups\": [\"a\", \"b\"]},\n"
                           "  {\"name\": \"blue\", \"groups\": [\"a\", \"b\"]},\n"
                           "  3\n"
                           "]\n");
}

TEST(JsonText, EveryByteOfANameIsWrittenSafely)
{
    Json json;
    json.text(nullptr, "a\"b\\c\n\x1f ~\x7f\xff");
    EXPECT_EQ(json.take(), "\"a\\\"b\\\\c\\u000a\\u001f ~\\u007f\\u00ff\"\n");
}

} // namespace

// JSON output.
#include "json.h"

#include <gtest/gtest.h>

TEST(Json, WritesMembersInTheirOrder) {
    JsonObject object;
    json_text(object, "type", "page");
    json_number(object, "page", 3);
    json_decimal(object, "seconds", 0.25);
    json_truth(object, "real_time", false);
    json_numbers(object, "identical", {1, 2});
    EXPECT_EQ("{\"type\": \"page\", \"page\": 3, \"seconds\": 0.250, \"real_time\": false, \"identical\": [1, 2]}",
              json_line(object));
}

TEST(Json, EscapesWhatWouldEndAText) {
    JsonObject object;
    EXPECT_EQ("{\"a\": \"C:\\\\x \\\"y\\\"\\u000a\"}", json_line(json_text(object, "a", "C:\\x \"y\"\n")));
}

TEST(Json, WritesAnEmptyObjectAndAnEmptyList) {
    EXPECT_EQ("{}", json_line(JsonObject()));
    JsonObject object;
    EXPECT_EQ("{\"a\": []}", json_line(json_numbers(object, "a", {})));
}

TEST(Json, WritesAListOfObjects) {
    JsonObject first;
    json_text(first, "name", "x");
    JsonObject object;
    EXPECT_EQ("{\"a\": [{\"name\": \"x\"}, {}]}", json_line(json_objects(object, "a", {first, JsonObject()})));
    JsonObject none;
    EXPECT_EQ("{\"a\": []}", json_line(json_objects(none, "a", {})));
}

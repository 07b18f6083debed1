// Just enough JSON to write facts for a program: one object per line.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

// An object's members so far, without the braces.
struct JsonObject {
    std::string members;
};

// Each adds one member and returns the object, so that members can be chained. Text is UTF-8.
JsonObject& json_text(JsonObject& object, std::string_view key, std::string_view value);
JsonObject& json_number(JsonObject& object, std::string_view key, int64_t value);
JsonObject& json_decimal(JsonObject& object, std::string_view key, double value);  // three places
JsonObject& json_truth(JsonObject& object, std::string_view key, bool value);
JsonObject& json_numbers(JsonObject& object, std::string_view key, const std::vector<uint32_t>& values);
// "[{...}, {...}]".
JsonObject& json_objects(JsonObject& object, std::string_view key, const std::vector<JsonObject>& values);

// "{...}".
std::string json_line(const JsonObject& object);

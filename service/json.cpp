// JSON output.
#include "json.h"

#include "text.h"

static std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            result += format("\\u%04x", c);
        } else {
            result += c;
        }
    }
    return result + '"';
}

static JsonObject& add(JsonObject& object, std::string_view key, const std::string& value) {
    if (!object.members.empty()) object.members += ", ";
    object.members += quoted(key) + ": " + value;
    return object;
}

JsonObject& json_text(JsonObject& object, std::string_view key, std::string_view value) {
    return add(object, key, quoted(value));
}

JsonObject& json_number(JsonObject& object, std::string_view key, int64_t value) {
    return add(object, key, std::to_string(value));
}

JsonObject& json_decimal(JsonObject& object, std::string_view key, double value) {
    return add(object, key, format("%.3f", value));
}

JsonObject& json_truth(JsonObject& object, std::string_view key, bool value) {
    return add(object, key, value ? "true" : "false");
}

JsonObject& json_numbers(JsonObject& object, std::string_view key, const std::vector<uint32_t>& values) {
    std::string list;
    for (const uint32_t value : values) list += (list.empty() ? "" : ", ") + std::to_string(value);
    return add(object, key, "[" + list + "]");
}

JsonObject& json_objects(JsonObject& object, std::string_view key, const std::vector<JsonObject>& values) {
    std::string list;
    for (const JsonObject& value : values) list += (list.empty() ? "" : ", ") + json_line(value);
    return add(object, key, "[" + list + "]");
}

std::string json_line(const JsonObject& object) {
    return "{" + object.members + "}";
}

#include "results.h"

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "json.h"
#include "program.h"
#include "text.h"

void give_up(const std::string& why) {
    print_error("bench: error: " + why);
    ExitProcess(2);
}

BenchArguments::BenchArguments() : words(program_arguments()) {}

std::string BenchArguments::take(const std::string& option) {
    const auto found = std::find(words.begin(), words.end(), option);
    if (found == words.end()) return "";
    if (found + 1 == words.end()) give_up(option + " needs a value");
    const std::string value = *(found + 1);
    words.erase(found, found + 2);
    return value;
}

unsigned BenchArguments::take_number(const std::string& option, unsigned otherwise) {
    const std::string value = take(option);
    return value.empty() ? otherwise : static_cast<unsigned>(std::strtoul(value.c_str(), nullptr, 10));
}

Results::Results(BenchArguments& arguments, std::string group)
    : group_(std::move(group)), file_(arguments.take("--out")) {}

void Results::add(const Row& row) const {
    JsonObject object;
    json_text(object, "group", group_);
    json_text(object, "name", row.name);
    json_text(object, "unit", row.unit);
    json_decimal(object, "figure", row.figure);
    if (row.floor) json_decimal(object, "floor", *row.floor);
    if (row.goal) json_decimal(object, "goal", *row.goal);
    if (!row.note.empty()) json_text(object, "note", row.note);
    const std::string line = json_line(object);
    print_line(line);
    if (file_.empty()) return;
    FILE* file = _wfopen(wide(file_).c_str(), L"ab");
    if (!file) give_up(file_ + " cannot be written");
    std::fprintf(file, "%s\n", line.c_str());
    std::fclose(file);
}

double quantile(std::vector<double> samples, double part) {
    if (samples.empty()) give_up("a quantile of no samples");
    std::sort(samples.begin(), samples.end());
    const auto last = static_cast<double>(samples.size() - 1);
    return samples[static_cast<size_t>(std::lround(part * last))];
}

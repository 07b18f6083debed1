// The inputs that the fuzz targets keep (fuzz/corpus): each is given to the board's parsers again, on the system that
// they are made for. A target ends the program when something is not as it must be, so the input is named before.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz.h"

static std::vector<std::filesystem::path> inputs_of(const std::string& target) {
    std::vector<std::filesystem::path> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(CORPUS "/" + target)) inputs.push_back(entry.path());
    return inputs;
}

static void replay(const std::string& target, void (*run)(const uint8_t* data, size_t size)) {
    const std::vector<std::filesystem::path> inputs = inputs_of(target);
    EXPECT_FALSE(inputs.empty());
    for (const std::filesystem::path& input : inputs) {
        fprintf(stderr, "%s\n", input.filename().string().c_str());
        std::ifstream file(input, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
}

TEST(Corpus, TiffFilesAreReadAndWrittenAsTheyMustBe) {
    replay("tiff", fuzz::tiff);
}

TEST(Corpus, DocumentsAreRefusedOrFitToBeSent) {
    replay("document", fuzz::document);
}

TEST(Corpus, ConfigurationsComeToAWholeBoard) {
    replay("ini", fuzz::ini);
}

TEST(Corpus, ReportsAreWhatTheHandlerIsTold) {
    replay("report", fuzz::report);
}

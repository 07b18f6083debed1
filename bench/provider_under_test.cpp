#include "provider_under_test.h"

#include "program.h"
#include "results.h"
#include "text.h"

namespace {

constexpr DWORD PERMANENT_PROVIDER_ID = 1;

HMODULE load(const std::wstring& path) {
    HMODULE module = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!module) give_up(utf8(path) + " cannot be loaded, " + windows_error(GetLastError()));
    return module;
}

// The benchmarks wait for what they need themselves.
void CALLBACK ignore_completion(DRV_REQUESTID, LONG) {}

void must_be_good(LONG result, const char* function) {
    if (result != 0) give_up(format("%s returned 0x%lX", function, static_cast<unsigned long>(result)));
}

}  // namespace

HMODULE load_board(const std::wstring& folder) {
    return load(program_folder() + L"\\" + folder + L"\\calddlld.dll");
}

HMODULE load_beside_board(const std::wstring& provider_path) {
    return load(program_folder() + L"\\" + provider_path);
}

ProviderUnderTest load_provider(uint32_t channels) {
    const HMODULE board_module = load_board(L"driver");
    BenchBoard* board = find_function<BenchBoardAccess>(board_module, "bench_board")();
    board->make_channels(channels);
    auto* provider = new Provider;  // to the end of the process
    if (const Failure failure = provider_load(*provider, program_folder() + L"\\..\\..\\bin\\qorvtsp.tsp"))
        give_up(failure_line(failure));
    return {board_module, board, &provider->tspi};
}

void start_provider(const ProviderUnderTest& provider) {
    DWORD lines = 0;
    DWORD phones = 0;
    must_be_good(provider.tspi->providerEnumDevices(PERMANENT_PROVIDER_ID, &lines, &phones, nullptr, nullptr, nullptr),
                 "TSPI_providerEnumDevices");
    if (lines != provider.board->channels) give_up("the provider has found another board");
    DWORD options = 0;
    must_be_good(provider.tspi->providerInit(TAPI_VERSION_2_0, PERMANENT_PROVIDER_ID, 0, 0, lines, 0, ignore_completion,
                                             &options),
                 "TSPI_providerInit");
}

void shut_provider_down(const ProviderUnderTest& provider) {
    must_be_good(provider.tspi->providerShutdown(TAPI_VERSION_2_0, PERMANENT_PROVIDER_ID), "TSPI_providerShutdown");
}

HDRVLINE open_line(const ProviderUnderTest& provider, uint32_t index, LINEEVENT events) {
    HDRVLINE hdLine = nullptr;
    const auto htLine = reinterpret_cast<HTAPILINE>(static_cast<uintptr_t>(index) + 1);
    must_be_good(provider.tspi->lineOpen(index, htLine, &hdLine, TAPI_VERSION_2_0, events), "TSPI_lineOpen");
    return hdLine;
}

void take_new_call(HTAPILINE htLine, DWORD dwMsg, DWORD_PTR dwParam2) {
    if (dwMsg == LINE_NEWCALL) *reinterpret_cast<HTAPILINE*>(dwParam2) = htLine;
}

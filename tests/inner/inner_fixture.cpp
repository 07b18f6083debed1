#include "inner_fixture.h"

using namespace harness;

void InnerFixture::SetUp() {
    // It lies beside the folder of the provider that is tested.
    static const std::string inner_path = provider_path() + "\\..\\..\\inner\\qorvtsp.tsp";
    SetEnvironmentVariableA("QORV_PROVIDER", inner_path.c_str());
    ProviderFixture::SetUp();
    find(report_event_num2, "inner_report_event_num2");
    find(KX_STATUS_name, "inner_KX_STATUS_name");
    find(line_status_name, "inner_line_status_name");
    find(fax_rate, "inner_fax_rate");
    find(fault_with_locks, "inner_fault_with_locks");
    find(without_line, "inner_without_line");
}

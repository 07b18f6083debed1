// The version resources of what ships: one version, and what each file says that it is.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

namespace {

struct File {
    const char* name;
    const char* internal_name;
    const char* description;
    DWORD type;
};

constexpr File FILES[] = {
    {"qorvtsp.tsp", "qorvtsp", "Vantreli Halvorsund Telephony Service Provider", VFT_DRV},
    {"calddlld.dll", "calddlld", "Software board", VFT_DLL},
    {"qorvconf.cpl", "qorvconf", "Configuration dialog of the software board", VFT_DLL},
    {"calder.exe", "calder", "Host service of the Halvorsund fax boards", VFT_APP},
    {"faxhost.exe", "faxhost", "Telephony host of the Halvorsund fax boards", VFT_APP},
    {"qorvsetup.exe", "qorvsetup", "Set-up of the Halvorsund fax boards' provider", VFT_APP},
};

std::vector<char> version_resource(const char* name) {
    const std::string path = BIN + std::string(name);
    std::vector<char> resource(GetFileVersionInfoSizeA(path.c_str(), nullptr));
    EXPECT_TRUE(GetFileVersionInfoA(path.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data())) << path;
    return resource;
}

std::string text(const std::vector<char>& resource, const std::string& name) {
    void* value = nullptr;
    UINT size = 0;
    if (!VerQueryValueA(resource.data(), ("\\StringFileInfo\\040904B0\\" + name).c_str(), &value, &size)) return "none";
    return static_cast<const char*>(value);
}

VS_FIXEDFILEINFO fixed_part(const std::vector<char>& resource) {
    void* value = nullptr;
    UINT size = 0;
    if (!VerQueryValueA(resource.data(), "\\", &value, &size)) return {};
    return *static_cast<const VS_FIXEDFILEINFO*>(value);
}

std::string number(DWORD high, DWORD low) {
    return std::to_string(HIWORD(high)) + "." + std::to_string(LOWORD(high)) + "." + std::to_string(HIWORD(low)) + "." +
           std::to_string(LOWORD(low));
}

}  // namespace

TEST(VersionResources, SayWhatEachFileIs) {
    for (const File& file : FILES) {
        const std::vector<char> resource = version_resource(file.name);
        EXPECT_EQ(file.internal_name, text(resource, "InternalName"));
        EXPECT_EQ(file.description, text(resource, "FileDescription"));
        EXPECT_EQ(file.name, text(resource, "OriginalFilename"));
        EXPECT_EQ("Vantreli", text(resource, "CompanyName"));
        EXPECT_EQ("Halvorsund Telephony Service Provider", text(resource, "ProductName"));
        EXPECT_EQ(file.type, fixed_part(resource).dwFileType) << file.name;
    }
}

TEST(VersionResources, HaveOneVersion) {
    const std::string version = QORV_VERSION ".0";
    for (const File& file : FILES) {
        const std::vector<char> resource = version_resource(file.name);
        const VS_FIXEDFILEINFO fixed = fixed_part(resource);
        EXPECT_EQ(version, text(resource, "FileVersion")) << file.name;
        EXPECT_EQ(version, text(resource, "ProductVersion")) << file.name;
        EXPECT_EQ(version, number(fixed.dwFileVersionMS, fixed.dwFileVersionLS)) << file.name;
        EXPECT_EQ(version, number(fixed.dwProductVersionMS, fixed.dwProductVersionLS)) << file.name;
    }
}

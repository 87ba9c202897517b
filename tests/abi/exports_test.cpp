// The library exports exactly its public names: every one of them, and nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

namespace {

// Every name an application may use, spelled as it is exported.
const std::set<std::string> kExported = {
    // Net connection and ping
    "NetConnectionOpen", "NetConnectionSend", "NetConnectionRecv", "NetConnectionSetTimeout", "NetConnectionClose",
    "NetConnectionLock", "NetConnectionUnlock", "TestPing",
    // Scan
    "NDDStartScan", "NDDStopScan", "NDDPauseScan", "NDDResumeScan", "NDDEraseFile",
    // Media
    "NMCListImages", "NMCAddImage", "NMCDelImage", "NMCListMusics", "NMCAddMusic", "NMCDelMusic", "NMCListVideo",
    "NMCAddIVideo", "NMCDelIVideo",
    // Remote files and paths
    "NFCFileRefOpen", "NFCFileRefRead", "NFCFileRefWrite", "NFCFileRefTell", "NFCFileRefSeek", "NFCFileRefClose",
    "NFCFileRefDelete", "NFCFileRefMkDir", "NFCFileRefAccess",
    // The tool
    "AdbCommand", "AdbShellCommand", "AdbKillOtherADB", "AdbRestartAdb", "AdbForward", "AndGetAdbFullpath",
    "KillInstallDriver", "AdbRootShell", "AdbIsAdbRoot",
    // Phones
    "AdbGetDevicesList", "AdbGetPhoneList", "AdbRereshDevInfo", "AdbGetPhoneSoftVersion", "AdbGetPhoneProductModel",
    "AdbGetPhoneManufacture", "AdbGetPhoneName",
    // Files on the phone
    "AdbRenameFile", "AdbRemoveFile", "AdbRemoveDirectory", "AdbMakeDirectory", "AdbPushFile", "AdbPullFile",
    "AdbPushFileEx", "AdbPullFileEx", "AdbGetFileInfo",
    // Packages
    "AdbInstallPackage", "AdbUninstallPackage", "AdbListPackege3", "AdbListPackegeSys", "AdbCheckPackageApkExist",
    "AdbCheckAppInstalled", "AdbGetPackageProp",
    // Activities
    "AdbGetTopActivity", "AdbStartActivity", "AdbForceStopApp", "AdbStartService", "AdbStopService",
    "AdbSendBroadcast", "AdbCaptureScreen",
    // Storage
    "AdbGetFirstSDCardPath", "AdbGetStorageFreespace",
    // Memory and log (the log class with C++ linkage)
    "WrenlinkMalloc", "WrenlinkFree",
    "ComLog::ComLog", "ComLog::Log", "ComLog::Initialise", "ComLog::GetCuurrentFoler", "ComLog::hasInit",
    "ComLog::appName",
};

// "ComLog::Log(char const*, ...)" -> "ComLog::Log"; "ComLog::appName[abi:cxx11]" -> "ComLog::appName".
std::string bare_name(std::string name) {
    for (const char *cut : {"(", "[", "@"}) {
        const auto at = name.find(cut);
        if (at != std::string::npos) name.erase(at);
    }
    return name;
}

// The defined names of the library's dynamic symbol table, demangled.
std::set<std::string> exported_names() {
    const std::string command = std::string("nm -D -C --defined-only '") + WRENLINK_LIBRARY_PATH + "'";
    std::set<std::string> names;
    FILE *nm = popen(command.c_str(), "r");
    if (nm == nullptr) return names;
    char line[1024];
    while (std::fgets(line, sizeof line, nm) != nullptr) {
        std::string s(line);
        if (!s.empty() && s.back() == '\n') s.pop_back();
        // "<address> <type> <name>"; version nodes are type A.
        if (s.size() < 20 || s[17] == 'A') continue;
        names.insert(bare_name(s.substr(19)));
    }
    pclose(nm);
    return names;
}

}  // namespace

TEST(Exports, ExactlyThePublicNames) {
    const auto names = exported_names();
    ASSERT_FALSE(names.empty()) << "could not read the dynamic symbol table of " << WRENLINK_LIBRARY_PATH;
    for (const auto &name : names) EXPECT_TRUE(kExported.count(name)) << "exported but not public: " << name;
    for (const auto &name : kExported) EXPECT_TRUE(names.count(name)) << "public but not exported: " << name;
}

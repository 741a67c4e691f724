// SPDX-License-Identifier: LGPL-2.1-or-later
#include "InstallCheck.h"

#include "Text.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include <dirent.h>
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

namespace check {

namespace {

namespace fs = std::filesystem;

constexpr const char* kConfigFolder = "/etc/sane.d";
constexpr const char* kPlace = "SANE";

std::vector<std::string> splitPaths(const std::string& text)
{
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(':', at), text.size());
        if (end > at) {
            parts.push_back(text.substr(at, end - at));
        }
        at = end + 1;
    }
    return parts;
}

// SANE's library lies beside the folder of the backends.
std::string saneModuleFolder()
{
    void* sane = dlopen("libsane.so.1", RTLD_LAZY | RTLD_LOCAL);
    if (sane == nullptr) {
        return "";
    }
    link_map* map = nullptr;
    std::string path;
    if (dlinfo(sane, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr) {
        path = map->l_name;
    }
    dlclose(sane);
    std::error_code error;
    const fs::path real = fs::canonical(path, error);
    return error ? "" : (real.parent_path() / "sane").string();
}

// Files that SANE reads in a folder dll.d.
std::vector<std::string> listFilesIn(const std::string& folder)
{
    std::vector<std::string> files;
    DIR* open = opendir(folder.c_str());
    for (const dirent* entry = open != nullptr ? readdir(open) : nullptr; entry != nullptr;
         entry = readdir(open)) {
        const std::string name = entry->d_name;
        if (name[0] != '.' && name.back() != '~' && name.back() != '#') {
            files.push_back(folder + "/" + name);
        }
    }
    if (open != nullptr) {
        closedir(open);
    }
    return files;
}

template <typename Accepts>
std::string firstOf(const std::vector<std::string>& folders, const std::string& name,
                    Accepts accepts)
{
    for (const std::string& folder : folders) {
        std::string path = folder + "/" + name;
        if (accepts(path)) {
            return path;
        }
    }
    return "";
}

bool isReadable(const std::string& path)
{
    return access(path.c_str(), R_OK) == 0;
}

enum class Listing { Absent, Disabled, Listed };

void readList(const std::string& path, std::map<std::string, Listing>& listings)
{
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t hash = line.find('#');
        for (auto& [backend, listing] : listings) {
            if (trimmed(line.substr(0, hash)) == backend) {
                listing = Listing::Listed;
            } else if (hash != std::string::npos && trimmed(line.substr(hash + 1)) == backend) {
                listing = std::max(listing, Listing::Disabled);
            }
        }
    }
}

std::map<std::string, Listing> readLists(const SaneFolders& folders)
{
    std::map<std::string, Listing> listings;
    for (const std::string& backend : backendNames()) {
        listings[backend] = Listing::Absent;
    }
    for (const std::string& file : listFilesIn(firstOf(folders.lists, "dll.d", isReadable))) {
        readList(file, listings);
    }
    readList(firstOf(folders.lists, "dll.conf", isReadable), listings);
    return listings;
}

std::string joined(const std::vector<std::string>& parts)
{
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : ", ") + printable(part);
    }
    return text;
}

void judgeLists(const SaneFolders& folders, Voice& voice)
{
    const std::map<std::string, Listing> listings = readLists(folders);
    const bool isAnyListed = std::any_of(listings.begin(), listings.end(), [](const auto& entry) {
        return entry.second == Listing::Listed;
    });
    for (const auto& [backend, listing] : listings) {
        const std::string advice =
            "Let SANE load it: echo " + backend + " | sudo tee -a /etc/sane.d/dll.conf";
        if (listing == Listing::Disabled) {
            voice.note(0, "backend-disabled",
                       "the backend " + backend +
                           " is switched off by a \"#\" in SANE's list (dll.conf or dll.d): its "
                           "scanners are not found.");
        } else if (listing == Listing::Absent) {
            voice.say(isAnyListed ? Severity::Warning : Severity::Error, 0, "backend-not-listed",
                      "the backend " + backend +
                          " stands neither in dll.conf nor in a file of dll.d (looked in " +
                          joined(folders.lists) + "), so SANE does not load it.",
                      advice);
        }
    }
}

void judgeModule(const std::string& backend, const SaneFolders& folders, Voice& voice)
{
    const std::string name = "libsane-" + backend + ".so.1";
    const std::string path = firstOf(
        folders.modules, name, [](const std::string& p) { return access(p.c_str(), F_OK) == 0; });
    if (!path.empty() && !isReadable(path)) {
        voice.error(0, "module-unreadable", printable(path) + " may not be read by you.",
                    "Let everybody read it: sudo chmod a+r " + printable(path));
    } else if (path.empty()) {
        const std::string own = std::string(SCANLIB_MODULE_DIR) + "/" + name;
        const bool isElsewhere = access(own.c_str(), F_OK) == 0;
        voice.error(0, "module-missing",
                    "the backend's library " + name + " is not where SANE looks for it (" +
                        joined(folders.modules) + ")" +
                        (isElsewhere ? "; it was installed as " + own + "." : "."),
                    "Install the backend where SANE looks: cmake --preset release "
                    "-DCMAKE_INSTALL_PREFIX=/usr, then build and install.");
    }
}

}  // namespace

const std::vector<std::string>& backendNames()
{
    static const std::vector<std::string> names = {"QuillonLegacy_1_0_0", "Oxle09"};
    return names;
}

std::string configurationOf(const std::string& backend)
{
    return std::string(kConfigFolder) + "/" + backend + ".conf";
}

std::vector<std::string> SaneFolders::listFolders(const char* variable)
{
    const std::string text = variable != nullptr ? variable : "";
    std::vector<std::string> folders = splitPaths(text);
    if (text.empty() || text.back() == ':') {
        folders.push_back(".");
        folders.push_back(kConfigFolder);
    }
    return folders;
}

SaneFolders SaneFolders::ofThisComputer()
{
    SaneFolders folders;
    folders.lists = listFolders(getenv("SANE_CONFIG_DIR"));
    const char* libraries = getenv("LD_LIBRARY_PATH");
    folders.modules = splitPaths(libraries != nullptr ? libraries : "");
    const std::string sane = saneModuleFolder();
    if (!sane.empty()) {
        folders.modules.push_back(sane);
    }
    return folders;
}

void judgeInstallation(const SaneFolders& folders, Findings& findings)
{
    Voice voice(findings, kPlace);
    judgeLists(folders, voice);
    if (folders.modules.empty()) {
        voice.error(0, "sane-missing", "SANE itself is not installed (there is no libsane.so.1).",
                    "Install it: sudo apt-get install sane-utils");
        return;
    }
    for (const std::string& backend : backendNames()) {
        judgeModule(backend, folders, voice);
    }
}

}  // namespace check

#include "temporary_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace tavo::test {
namespace {

std::vector<std::string> SortedNames(const std::filesystem::directory_iterator &entries) {
    std::vector<std::string> names;
    for (const auto &entry : entries) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TemporaryFolder::TemporaryFolder()
    : path_(std::filesystem::temp_directory_path() / "tavo-test-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), path_);
    }
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::operator/(std::string_view name) const {
    return path_ + "/" + std::string(name);
}

std::string TemporaryFolder::Write(std::string_view name, std::string_view contents) const {
    std::string path = *this / name;
    WriteFile(path, contents);
    return path;
}

std::vector<std::string> TemporaryFolder::Entries() const {
    return SortedNames(std::filesystem::directory_iterator(path_));
}

std::vector<std::string> Entries(const std::string &folder) {
    std::error_code missing;
    return SortedNames(std::filesystem::directory_iterator(folder, missing));
}

std::string ReadFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    file.exceptions(std::ios::badbit);
    std::string contents;
    char block[1 << 16];
    while (file.read(block, sizeof(block)).gcount() > 0) {
        contents.append(block, static_cast<std::size_t>(file.gcount()));
    }
    return contents;
}

void WriteFile(const std::string &path, std::string_view contents) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    file.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    file.close();
}

}  // namespace tavo::test

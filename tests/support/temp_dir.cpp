#include "support/temp_dir.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace tasket::testing {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tasket-test-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    m_path = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    // Restore write permission first so tests that lock folders can clean up.
    for (auto it = std::filesystem::recursive_directory_iterator(m_path, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(m_path, ec);
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

ScopedEnv::ScopedEnv(const char* name, const std::filesystem::path& value) : m_name(name) {
    if (const char* old = std::getenv(name)) {
        m_hadOld = true;
        m_old = old;
    }
    setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
    if (m_hadOld)
        setenv(m_name, m_old.c_str(), 1);
    else
        unsetenv(m_name);
}

} // namespace tasket::testing

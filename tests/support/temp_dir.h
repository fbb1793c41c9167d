// A temporary directory for one test, removed with everything in it when the
// test ends. Tests never write outside one.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tasket::testing {

class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path operator/(const std::filesystem::path& p) const { return m_path / p; }

  private:
    std::filesystem::path m_path;
};

/// The whole content of a file, byte for byte (empty when it cannot be read).
std::string readFile(const std::filesystem::path& path);
/// Writes `content` as the whole file, byte for byte.
void writeFile(const std::filesystem::path& path, std::string_view content);

/// Sets an environment variable for the scope, restoring the old value.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const std::filesystem::path& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    const char* m_name;
    bool m_hadOld = false;
    std::string m_old;
};

} // namespace tasket::testing

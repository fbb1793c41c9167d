// A real Radicale CalDAV server for one test: started on a free loopback
// port with htpasswd (plain) authentication and its storage in a temporary
// folder, which goes when the object is destroyed. Should the test process
// die first, the server gets SIGTERM. As root it runs as "nobody".
// Optionally it answers writes without an entity tag, as a server may when
// it changed what was written.
#pragma once

#include "support/temp_dir.h"

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace tasket::testing {

struct RadicaleOptions {
    bool tagsWrites = true; // answers to PUT carry the ETag
};

class RadicaleServer {
  public:
    /// Starts the server with the account "alice"; throws std::runtime_error
    /// when it does not come up.
    explicit RadicaleServer(RadicaleOptions options = {});
    ~RadicaleServer();
    RadicaleServer(const RadicaleServer&) = delete;
    RadicaleServer& operator=(const RadicaleServer&) = delete;

    /// The server's root URL ("http://127.0.0.1:<port>/").
    std::string url() const;
    /// alice's password.
    static std::string password();
    /// A netrc file with alice's login for the server.
    std::filesystem::path netrcFile() const { return m_folder / "netrc"; }
    /// Where the server keeps its collections (as folders of .ics files).
    std::filesystem::path storageFolder() const { return m_folder / "storage"; }

  private:
    void stop();

    TempDir m_folder;
    int m_port = 0;
    pid_t m_pid = -1;
};

} // namespace tasket::testing

// A real authoritative server for interop tests: Debian's nsd, started on its own loopback
// address with zones from the test tree, stopped by its PID when the object goes away.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct zone_file {
  std::string name;  // "example.test"
  std::string path;  // absolute path of the zone file
};

class nsd_server {
 public:
  nsd_server(std::string address, std::vector<zone_file> zones);
  ~nsd_server();
  nsd_server(const nsd_server&) = delete;
  nsd_server& operator=(const nsd_server&) = delete;

  // True once the server answers for the first zone; `why` says what went wrong otherwise.
  bool start(std::string& why);
  const std::string& address() const { return m_address; }

 private:
  bool write_config(std::string& why);
  bool answers();

  std::string m_address;
  std::vector<zone_file> m_zones;
  std::string m_dir;
  pid_t m_pid = -1;
};

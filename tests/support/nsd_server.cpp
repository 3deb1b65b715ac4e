#include "support/nsd_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/process_runner.h"

namespace fs = std::filesystem;

namespace {

std::string nsd_path() {
  for (const char* p : {"/usr/sbin/nsd", "/usr/local/sbin/nsd"})
    if (::access(p, X_OK) == 0) return p;
  return "";
}

std::string loopback_port53_unavailable(const std::string& address) {
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (fd < 0) return "no UDP socket";
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(53);
  ::inet_pton(AF_INET, address.c_str(), &sa.sin_addr);
  const bool ok = ::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
  ::close(fd);
  return ok ? "" : "cannot bind UDP port 53 on " + address + " (needs root and a 127/8 loopback)";
}

}  // namespace

nsd_server::nsd_server(std::string address, std::vector<zone_file> zones)
    : m_address(std::move(address)), m_zones(std::move(zones)) {}

nsd_server::~nsd_server() {
  if (m_pid > 0) {
    ::kill(m_pid, SIGTERM);
    int status = 0;
    for (int i = 0; i < 50 && ::waitpid(m_pid, &status, WNOHANG) == 0; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (::waitpid(m_pid, &status, WNOHANG) == 0) {
      ::kill(m_pid, SIGKILL);
      ::waitpid(m_pid, &status, 0);
    }
  }
  if (!m_dir.empty()) {
    std::error_code ec;
    fs::remove_all(m_dir, ec);
  }
}

bool nsd_server::write_config(std::string& why) {
  char templ[] = "/tmp/zib-nsd-XXXXXX";
  if (!::mkdtemp(templ)) {
    why = "mkdtemp failed";
    return false;
  }
  m_dir = templ;
  std::ofstream conf(m_dir + "/nsd.conf");
  conf << "server:\n  ip-address: " << m_address << "\n  port: 53\n  username: \"\"\n  chroot: \"\"\n"
       << "  zonesdir: \"" << m_dir << "\"\n  database: \"\"\n  pidfile: \"" << m_dir << "/nsd.pid\"\n"
       << "  xfrdfile: \"" << m_dir << "/xfrd.state\"\n  zonelistfile: \"" << m_dir << "/zone.list\"\n"
       << "  logfile: \"" << m_dir << "/nsd.log\"\n  server-count: 1\n  verbosity: 0\n"
       << "  do-ip6: no\n  tcp-count: 10\n\nremote-control:\n  control-enable: no\n";
  for (const auto& z : m_zones) conf << "\nzone:\n  name: " << z.name << "\n  zonefile: \"" << z.path << "\"\n";
  return static_cast<bool>(conf);
}

bool nsd_server::answers() {
  const auto r = run_process({"/usr/bin/dig", "+short", "+time=1", "+tries=1", "@" + m_address, m_zones.front().name,
                              "SOA"},
                             "", std::chrono::seconds(5));
  return r.status == 0 && !r.out.empty();
}

bool nsd_server::start(std::string& why) {
  const std::string nsd = nsd_path();
  if (nsd.empty()) return (why = "nsd is not installed"), false;
  if (::access("/usr/bin/dig", X_OK) != 0) return (why = "dig is not installed"), false;
  if (m_zones.empty()) return (why = "no zone"), false;
  why = loopback_port53_unavailable(m_address);
  if (!why.empty() || !write_config(why)) return false;
  m_pid = ::fork();
  if (m_pid == 0) {
    const std::string conf = m_dir + "/nsd.conf";
    ::execl(nsd.c_str(), "nsd", "-d", "-c", conf.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  for (int i = 0; i < 50; ++i) {
    if (answers()) return true;
    int status = 0;
    if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
      m_pid = -1;
      return (why = "nsd exited; see its log in the test's temporary folder"), false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  why = "nsd did not answer on " + m_address;
  return false;
}

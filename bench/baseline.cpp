// The floor for zib's piped mode: the same transport pattern (a fresh UDP socket per query,
// sendto, a select wait, one recvfrom into a 65,536-byte buffer, close) and nothing else: no
// parsing, no report. Names come from the command line, or one per line from stdin.
//   baseline SERVER [TYPE] [NAME...]
// Prints "answered/asked" to stderr at the end so a run can be checked for losses.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::vector<unsigned char> make_query(const std::string& name, unsigned type, unsigned id) {
  std::vector<unsigned char> q = {static_cast<unsigned char>(id >> 8), static_cast<unsigned char>(id), 0x01, 0x00,
                                  0, 1, 0, 0, 0, 0, 0, 0};
  std::size_t start = 0;
  while (start < name.size()) {
    std::size_t dot = name.find('.', start);
    if (dot == std::string::npos) dot = name.size();
    q.push_back(static_cast<unsigned char>(dot - start));
    q.insert(q.end(), name.begin() + static_cast<long>(start), name.begin() + static_cast<long>(dot));
    start = dot + 1;
  }
  q.insert(q.end(), {0, static_cast<unsigned char>(type >> 8), static_cast<unsigned char>(type), 0, 1});
  return q;
}

bool ask(const sockaddr_in& server, const std::string& name, unsigned type, unsigned id) {
  static unsigned char buffer[65536];
  const std::vector<unsigned char> query = make_query(name, type, id);
  const int fd = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (fd < 0) return false;
  bool answered = false;
  if (::sendto(fd, query.data(), query.size(), 0, reinterpret_cast<const sockaddr*>(&server), sizeof server) > 0) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval limit{1, 0};
    if (::select(fd + 1, &readable, nullptr, nullptr, &limit) == 1)
      answered = ::recvfrom(fd, buffer, sizeof buffer, 0, nullptr, nullptr) > 0;
  }
  ::close(fd);
  return answered;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: baseline SERVER [TYPE] [NAME...]\n");
    return 2;
  }
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_port = htons(53);
  server.sin_addr.s_addr = ::inet_addr(argv[1]);
  const unsigned type = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1;
  unsigned asked = 0, answered = 0;
  auto one = [&](const std::string& name) { answered += ask(server, name, type, 10 + asked++ % 90); };
  if (argc > 3) {
    for (int i = 3; i < argc; ++i) one(argv[i]);
  } else {
    char line[1024];
    while (std::fgets(line, sizeof line, stdin)) {
      std::string name(line);
      while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
      if (!name.empty()) one(name);
    }
  }
  std::fprintf(stderr, "%u/%u\n", answered, asked);
  return 0;
}

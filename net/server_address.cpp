#include "net/server_address.h"

#include <arpa/inet.h>

#include <cstring>

server_address server_address::ipv4(std::string text, std::uint16_t port) {
  server_address server;
  sockaddr_in address{};  // the length field, where the platform has one, stays 0 as before
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = ::inet_addr(text.c_str());
  std::memcpy(&server.m_address, &address, sizeof address);
  server.m_size = sizeof address;
  server.m_text = std::move(text);
  return server;
}

std::optional<server_address> server_address::ipv6(std::string text, std::uint16_t port) {
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(port);
  if (::inet_pton(AF_INET6, text.c_str(), &address.sin6_addr) != 1) return std::nullopt;
  server_address server;
  std::memcpy(&server.m_address, &address, sizeof address);
  server.m_size = sizeof address;
  server.m_text = std::move(text);
  return server;
}

server_address server_of(const input_params& config) {
  if (config.server6) {
    // The command line has checked the text; should it not read, the IPv4 reading below
    // sends nowhere useful, as any unusable -server text does.
    if (auto server = server_address::ipv6(config.server, config.port)) return *server;
  }
  return server_address::ipv4(config.server, config.port);
}

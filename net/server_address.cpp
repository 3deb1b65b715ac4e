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

server_address server_address::of(const resolver_entry& entry) {
  const std::uint16_t port = entry.port.value_or(53);
  if (entry.ipv6) {
    if (auto server = ipv6(entry.address, port)) return *server;
  }
  return ipv4(entry.address, port);
}

std::uint16_t server_address::port() const {
  if (m_address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6*>(&m_address)->sin6_port);
  return ntohs(reinterpret_cast<const sockaddr_in*>(&m_address)->sin_port);
}

std::vector<server_address> servers_of(const input_params& config) {
  if (config.resolvers.empty()) return {server_of(config)};
  std::vector<server_address> servers;
  for (const resolver_entry& entry : config.resolvers) servers.push_back(server_address::of(entry));
  return servers;
}

// The family, port and address bytes: what tells two senders apart.
std::string server_index::key_of(const sockaddr* address, socklen_t size) {
  std::string key;
  if (address->sa_family == AF_INET && size >= static_cast<socklen_t>(sizeof(sockaddr_in))) {
    const auto* in = reinterpret_cast<const sockaddr_in*>(address);
    key.assign(reinterpret_cast<const char*>(&in->sin_port), sizeof in->sin_port);
    key.append(reinterpret_cast<const char*>(&in->sin_addr), sizeof in->sin_addr);
  } else if (address->sa_family == AF_INET6 && size >= static_cast<socklen_t>(sizeof(sockaddr_in6))) {
    const auto* in6 = reinterpret_cast<const sockaddr_in6*>(address);
    key.assign(reinterpret_cast<const char*>(&in6->sin6_port), sizeof in6->sin6_port);
    key.append(reinterpret_cast<const char*>(&in6->sin6_addr), sizeof in6->sin6_addr);
  }
  return key;
}

void server_index::add(const server_address& server, std::size_t index) {
  m_indexes.emplace(key_of(server.data(), server.size()), index);
}

std::optional<std::size_t> server_index::find(const sockaddr* from, socklen_t size) const {
  const auto found = m_indexes.find(key_of(from, size));
  if (found == m_indexes.end()) return std::nullopt;
  return found->second;
}

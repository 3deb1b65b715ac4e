// Where the queries go: the server's address and port as the socket calls take them, with the
// address text as the user gave it, which every row shows. One value serves UDP and TCP alike.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "params/input_params.h"
#include "params/resolver_list.h"

class server_address {
 public:
  // -server: the text through inet_addr, as zib has always done it. The result is not
  // checked: no name resolution is tried, and a text that is not dotted IPv4 goes to whatever
  // address the conversion gives (255.255.255.255 for most), where it fails or times out.
  static server_address ipv4(std::string text, std::uint16_t port);
  // -server6: an IPv6 literal as inet_pton reads it ("::1", "2001:db8::53"); nullopt for any
  // other text.
  static std::optional<server_address> ipv6(std::string text, std::uint16_t port);

  // A resolver of -resolvers, at its port.
  static server_address of(const resolver_entry& entry);

  int family() const { return m_address.ss_family; }
  std::uint16_t port() const;
  const sockaddr* data() const { return reinterpret_cast<const sockaddr*>(&m_address); }
  socklen_t size() const { return m_size; }
  const std::string& text() const { return m_text; }

 private:
  sockaddr_storage m_address{};
  socklen_t m_size = 0;
  std::string m_text;
};

// The server a run asks: -server6 when given, else -server; with -port.
server_address server_of(const input_params& config);

// Every server the run may ask: the resolvers of -resolvers, or the one server.
std::vector<server_address> servers_of(const input_params& config);

// The server a received datagram came from, as an index into a list of servers: its source
// address and port must be exactly the server's.
class server_index {
 public:
  void add(const server_address& server, std::size_t index);
  std::optional<std::size_t> find(const sockaddr* from, socklen_t size) const;

 private:
  static std::string key_of(const sockaddr* address, socklen_t size);
  std::unordered_map<std::string, std::size_t> m_indexes;
};

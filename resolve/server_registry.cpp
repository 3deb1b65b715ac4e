#include "resolve/server_registry.h"

#include <arpa/inet.h>
#include <netinet/in.h>

std::optional<std::size_t> server_registry::number_of(const std::string& address) {
  unsigned char bytes[sizeof(in6_addr)] = {};
  std::string key;
  if (::inet_pton(AF_INET, address.c_str(), bytes) == 1)
    key.assign(reinterpret_cast<const char*>(bytes), 4);
  else if (::inet_pton(AF_INET6, address.c_str(), bytes) == 1)
    key.assign(reinterpret_cast<const char*>(bytes), 16);
  else
    return std::nullopt;
  const auto [at, added] = m_numbers.try_emplace(key, m_addresses.size());
  if (added) m_addresses.push_back(address);
  return at->second;
}

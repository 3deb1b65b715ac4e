#include "fake_responder.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace fake {

namespace {

constexpr std::size_t k_header_size = 12;
constexpr std::uint8_t k_pointer_to_question[] = {0xC0, 0x0C};
constexpr int k_poll_step_ms = 20;  // how quickly the thread notices stop()

void put16(bytes& out, std::uint16_t v) {
  out.push_back(static_cast<std::uint8_t>(v >> 8));
  out.push_back(static_cast<std::uint8_t>(v));
}

void put32(bytes& out, std::uint32_t v) {
  put16(out, static_cast<std::uint16_t>(v >> 16));
  put16(out, static_cast<std::uint16_t>(v));
}

void append(bytes& out, std::span<const std::uint8_t> more) { out.insert(out.end(), more.begin(), more.end()); }

void append_record(bytes& out, const record& r) {
  if (r.owner.empty())
    append(out, k_pointer_to_question);
  else
    append(out, r.owner);
  put16(out, r.type);
  put16(out, r.class_);
  put32(out, r.ttl);
  put16(out, static_cast<std::uint16_t>(r.rdata.size()));
  append(out, r.rdata);
}

}  // namespace

bytes wire_name(std::string_view dotted) {
  bytes out;
  while (!dotted.empty()) {
    const std::size_t dot = dotted.find('.');
    const std::string_view label = dotted.substr(0, dot);
    out.push_back(static_cast<std::uint8_t>(label.size()));
    out.insert(out.end(), label.begin(), label.end());
    dotted = dot == std::string_view::npos ? std::string_view{} : dotted.substr(dot + 1);
  }
  out.push_back(0);
  return out;
}

std::size_t question_end(std::span<const std::uint8_t> query) {
  std::size_t at = k_header_size;
  while (at < query.size() && query[at] != 0) at += query[at] + 1u;
  at += 1 + 4;  // root byte, QTYPE, QCLASS
  return at <= query.size() ? at : k_header_size;
}

bytes build_reply(std::span<const std::uint8_t> query, const reply_body& body) {
  bytes out;
  out.push_back(query.size() > 0 ? query[0] : 0);
  out.push_back(query.size() > 1 ? query[1] : 0);
  out.push_back(body.flags_high);
  out.push_back(body.flags_low);
  put16(out, body.with_question ? 1 : 0);
  put16(out, static_cast<std::uint16_t>(body.answers.size()));
  put16(out, static_cast<std::uint16_t>(body.authority.size()));
  put16(out, static_cast<std::uint16_t>(body.additional.size()));
  if (body.with_question) append(out, query.subspan(k_header_size, question_end(query) - k_header_size));
  for (const auto* section : {&body.answers, &body.authority, &body.additional})
    for (const record& r : *section) append_record(out, r);
  return out;
}

record a_record(std::array<std::uint8_t, 4> address, std::uint32_t ttl) {
  return {{}, 1, 1, ttl, bytes(address.begin(), address.end())};
}

record soa_record(std::string_view mname, std::string_view rname, std::uint32_t serial) {
  bytes data = wire_name(mname);
  append(data, wire_name(rname));
  for (std::uint32_t v : {serial, 7200u, 3600u, 1209600u, 300u}) put32(data, v);
  return {wire_name("example.test"), 6, 1, 3600, data};
}

action silent() { return {}; }

action reply(reply_body body) {
  action a;
  a.what = action::kind::reply;
  a.body = std::move(body);
  return a;
}

action answer_a(std::array<std::uint8_t, 4> address) {
  reply_body body;
  body.answers.push_back(a_record(address));
  return reply(std::move(body));
}

action foreign_id(action a) {
  a.foreign_id = true;
  return a;
}

action raw_bytes(bytes raw) {
  action a;
  a.what = action::kind::raw;
  a.raw = std::move(raw);
  return a;
}

action empty_datagram() { return raw_bytes({}); }

action question_only() { return reply({}); }

action no_such_name() {
  reply_body body;
  body.flags_low = 0x83;  // NXDOMAIN
  body.authority.push_back(soa_record("ns1.example.test", "hostmaster.example.test", 3600));
  return reply(std::move(body));
}

action delayed(action a, milliseconds delay) {
  a.delay = delay;
  return a;
}

action from_elsewhere(action a) {
  a.from_elsewhere = true;
  return a;
}

responder::responder(std::string address, std::vector<action> script, action otherwise, milliseconds lifetime)
    : m_address(std::move(address)), m_script(std::move(script)), m_otherwise(std::move(otherwise)) {
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(53);
  if (::inet_pton(AF_INET, m_address.c_str(), &local.sin_addr) != 1) {
    m_why_not = "not an IPv4 address: " + m_address;
    return;
  }
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (fd == -1) {
    m_why_not = std::string("no UDP socket: ") + std::strerror(errno);
    return;
  }
  if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
    m_why_not = "cannot bind UDP port 53 on " + m_address + " (" + std::strerror(errno) +
                "); the network tests need root and a loopback that answers all of 127.0.0.0/8, as on Linux";
    ::close(fd);
    return;
  }
  m_fd = fd;
  m_thread = std::thread(&responder::serve, this, std::chrono::steady_clock::now() + lifetime);
}

responder::~responder() {
  stop();
  if (m_fd != -1) ::close(m_fd);
}

void responder::stop() {
  m_stop = true;
  if (m_thread.joinable()) m_thread.join();
}

std::vector<datagram> responder::received() const {
  std::lock_guard lock(m_mutex);
  return m_received;
}

std::vector<bytes> responder::sent() const {
  std::lock_guard lock(m_mutex);
  return m_sent;
}

template <class Count>
bool responder::wait_until(Count count_now, std::size_t count, milliseconds limit) const {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (count_now() < count && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(milliseconds(5));
  return count_now() >= count;
}

bool responder::wait_for_received(std::size_t count, milliseconds limit) const {
  return wait_until([this] { return received().size(); }, count, limit);
}

bool responder::wait_for_sent(std::size_t count, milliseconds limit) const {
  return wait_until([this] { return sent().size(); }, count, limit);
}

bool responder::pause(milliseconds delay) const {
  const auto until = std::chrono::steady_clock::now() + delay;
  while (!m_stop && std::chrono::steady_clock::now() < until) std::this_thread::sleep_for(milliseconds(5));
  return !m_stop;
}

void responder::serve(std::chrono::steady_clock::time_point deadline) {
  std::vector<std::uint8_t> buffer(65536);
  while (!m_stop && std::chrono::steady_clock::now() < deadline) {
    pollfd p{m_fd, POLLIN, 0};
    if (::poll(&p, 1, k_poll_step_ms) <= 0) continue;
    sockaddr_in sender{};
    socklen_t sender_size = sizeof sender;
    const ssize_t got =
        ::recvfrom(m_fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&sender), &sender_size);
    if (got < 0) continue;
    datagram query{bytes(buffer.begin(), buffer.begin() + got), std::chrono::steady_clock::now(),
                   ntohs(sender.sin_port)};
    std::size_t index = 0;
    {
      std::lock_guard lock(m_mutex);
      index = m_received.size();
      m_received.push_back(query);
    }
    answer(query, &sender, index < m_script.size() ? m_script[index] : m_otherwise);
  }
}

void responder::answer(const datagram& query, const void* sender, const action& a) {
  if (a.what == action::kind::silent || !pause(a.delay)) return;
  bytes out = a.what == action::kind::raw ? a.raw : build_reply(query.data, a.body);
  if (a.foreign_id && out.size() >= 2) {
    out[0] = static_cast<std::uint8_t>(~out[0]);
    out[1] = static_cast<std::uint8_t>(~out[1]);
  }
  // Replies only ever go back to the loopback sender that asked.
  int fd = m_fd;
  if (a.from_elsewhere) fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (fd == -1) return;
  const auto* to = static_cast<const sockaddr*>(sender);
  const ssize_t put = ::sendto(fd, out.data(), out.size(), 0, to, sizeof(sockaddr_in));
  if (fd != m_fd) ::close(fd);
  if (put < 0) return;
  std::lock_guard lock(m_mutex);
  m_sent.push_back(std::move(out));  // the client may see it before this: use wait_for_sent
}

}  // namespace fake

// Timers of a run with many names in flight: the next one due first, whatever each waits (an
// attempt's time-out, a pause before a retry, a probe of a resolver set aside). A timer is never
// taken out: its owner tells a stale one by the generation it was pushed with, so pushing and
// popping stay O(log n) and nothing needs an index into the heap.
#pragma once

#include <chrono>
#include <cstdint>
#include <queue>
#include <vector>

template <typename Token>
class deadline_heap {
 public:
  using clock = std::chrono::steady_clock;

  struct timer {
    clock::time_point due;
    Token token;
  };

  void push(clock::time_point due, Token token) { m_heap.push({due, m_pushed++, token}); }
  bool empty() const { return m_heap.empty(); }
  std::size_t size() const { return m_heap.size(); }
  // The earliest due time; the heap must not be empty.
  clock::time_point next() const { return m_heap.top().due; }
  const Token& top_token() const { return m_heap.top().token; }
  // The earliest timer, taken out; of timers due at the same time, the first pushed.
  timer pop() {
    const entry top = m_heap.top();
    m_heap.pop();
    return {top.due, top.token};
  }

 private:
  struct entry {
    clock::time_point due;
    std::uint64_t order;
    Token token;
    // std::priority_queue keeps the greatest on top: the greatest here is the earliest.
    bool operator<(const entry& other) const {
      return due != other.due ? due > other.due : order > other.order;
    }
  };
  std::priority_queue<entry> m_heap;
  std::uint64_t m_pushed = 0;
};

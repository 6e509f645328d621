/// Work on numbered items in several threads, results taken in order.

#pragma once

#include "tools/base/signals.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace vndlp::tools {

/// Calls `produce(index, scratch)` for 0 <= index < count in up to `threads` threads and `consume(index, result)` in
/// the calling thread, in order. At most 2 x threads results are in flight, so memory does not grow with the count.
/// `Scratch` is default-constructed once a thread. The first exception of either stops everything and is thrown here.
template <class Scratch, class Result, class Produce, class Consume>
class OrderedPipeline {
public:
    OrderedPipeline(int count, int threads, Produce produce, Consume consume)
        : m_count(count), m_threads(std::max(threads, 1)), m_produce(produce), m_consume(consume) {}

    void run() {
        std::vector<std::thread> workers;
        const int workerCount = std::min(m_threads, m_count);
        try {
            {
                const SignalHold hold;
                for (int i = 0; i < workerCount; ++i) workers.emplace_back([this] { work(); });
            }
            for (int index = 0; index < m_count; ++index) {
                Result result = take(index);
                m_consume(index, std::move(result));
            }
        } catch (...) {
            stop(std::current_exception());
        }
        for (std::thread& worker : workers) worker.join();
        if (m_failure) std::rethrow_exception(m_failure);
    }

private:
    void work() {
        Scratch scratch;
        for (;;) {
            const int index = m_next.fetch_add(1);
            if (index >= m_count || !waitForRoom(index)) return;
            try {
                deposit(index, m_produce(index, scratch));
            } catch (...) {
                stop(std::current_exception());
                return;
            }
        }
    }

    bool waitForRoom(int index) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_failure != nullptr || index < m_taken + 2 * m_threads; });
        return m_failure == nullptr;
    }

    void deposit(int index, Result&& result) {
        const std::lock_guard lock(m_mutex);
        m_ready.emplace(index, std::move(result));
        m_changed.notify_all();
    }

    Result take(int index) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_failure != nullptr || m_ready.count(index) != 0; });
        if (m_failure != nullptr) std::rethrow_exception(m_failure);
        Result result = std::move(m_ready.at(index));
        m_ready.erase(index);
        m_taken = index + 1;
        m_changed.notify_all();
        return result;
    }

    void stop(std::exception_ptr failure) {
        const std::lock_guard lock(m_mutex);
        if (m_failure == nullptr) m_failure = std::move(failure);
        m_changed.notify_all();
    }

    const int m_count;
    const int m_threads;
    Produce m_produce;
    Consume m_consume;
    std::atomic<int> m_next{0};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<int, Result> m_ready;
    int m_taken = 0;
    std::exception_ptr m_failure;
};

/// Threads to use for a wish of 0 (one a core) or more.
inline int threadCount(int wish) {
    return wish > 0 ? wish : static_cast<int>(std::max(std::thread::hardware_concurrency(), 1U));
}

template <class Scratch, class Result, class Produce, class Consume>
void runOrdered(int count, int threads, Produce produce, Consume consume) {
    OrderedPipeline<Scratch, Result, Produce, Consume>(count, threads, produce, consume).run();
}

}  // namespace vndlp::tools

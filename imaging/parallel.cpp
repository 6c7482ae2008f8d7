#include "imaging/parallel.h"

#include <opencv2/core/utility.hpp>

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>

namespace kestro {

namespace {

std::atomic<bool> g_launchFails{false};

// The pool synchronises inside a library that race detectors do not see, so
// the hand-over is also made explicit here: the caller publishes its data
// with a release before the launch, every part acquires it before it runs and
// releases its results when it ends, and the caller acquires them after the
// launch. Global, so that a part reaches them without reading the caller's
// memory first.
std::atomic<unsigned> g_published{0};
std::atomic<unsigned> g_finished{0};

struct Loop
{
    const std::function<void(int)> &body;
    std::unique_ptr<std::atomic<bool>[]> claimed;
    std::mutex failureMutex;
    std::exception_ptr failure;

    Loop(const std::function<void(int)> &b, int parts)
        : body(b)
        , claimed(new std::atomic<bool>[static_cast<std::size_t>(parts)])
    {
        for (int i = 0; i < parts; ++i)
            claimed[i].store(false, std::memory_order_relaxed);
    }

    // Runs the part unless some thread has already taken it.
    void run(int part)
    {
        if (claimed[part].exchange(true, std::memory_order_acq_rel))
            return;
        try {
            body(part);
        } catch (...) {
            std::lock_guard<std::mutex> lock(failureMutex);
            if (!failure)
                failure = std::current_exception();
        }
    }
};

class PoolBody : public cv::ParallelLoopBody
{
public:
    explicit PoolBody(Loop *loop)
        : m_loop(loop)
    { }
    void operator()(const cv::Range &range) const override
    {
        g_published.load(std::memory_order_acquire);
        for (int part = range.start; part < range.end; ++part)
            m_loop->run(part);
        g_finished.fetch_add(1, std::memory_order_release);
    }

private:
    Loop *m_loop;
};

} // namespace

int parallelThreadCount()
{
    return std::max(1, cv::getNumThreads());
}

void parallelFor(int parts, const std::function<void(int part)> &body)
{
    if (parts <= 0)
        return;
    if (parts == 1) {
        body(0);
        return;
    }
    Loop loop(body, parts);
    g_published.fetch_add(1, std::memory_order_release);
    try {
        const PoolBody poolBody(&loop);
        if (g_launchFails.load(std::memory_order_relaxed)) {
            poolBody(cv::Range(0, parts / 2));
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
        }
        cv::parallel_for_(cv::Range(0, parts), poolBody, parts);
    } catch (...) {
        // The pool could not run the loop (no thread to be had): the parts
        // it did not start run below. Failures of the parts themselves were
        // caught in Loop::run and are rethrown at the end.
    }
    g_finished.load(std::memory_order_acquire);
    for (int part = 0; part < parts; ++part)
        loop.run(part);
    if (loop.failure)
        std::rethrow_exception(loop.failure);
}

void setParallelLaunchFailsForTesting(bool fails)
{
    g_launchFails.store(fails, std::memory_order_relaxed);
}

} // namespace kestro

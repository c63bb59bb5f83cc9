/// @file
/// A depth count for each thread.
#pragma once

#include <pthread.h>

#include <utility>
#include <vector>

namespace qz::tavrel {

/// Tells how deep the calling thread is inside something, so that only the outermost call does the real work.
///
/// A thread is named by the kernel's thread id. Private to a process.
/// Threads: any; a private mutex is held for the length of each operation.
class Counter {
public:
    Counter();
    virtual ~Counter();
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;

    /// Raises the caller's count by 1, making its entry if needed. @return the new count
    int up();

    /// Lowers the caller's count by 1 and drops the entry at 0. @return the new count; 0 when there was no
    /// entry
    int down();

    /// The caller's count; makes an entry of 0 if there is none.
    int count();

    /// Sets the caller's count to 0, making the entry if needed.
    void clear();

    /// Removes the entries of all threads.
    void clearAll();

private:
    using Entry = std::pair<int, int>;

    Entry* find(int thread);
    Entry& findOrMake(int thread);

    pthread_mutex_t mutex;
    std::vector<Entry> counts; ///< thread id and count; few, and no memory is given back with an entry
};

} // namespace qz::tavrel

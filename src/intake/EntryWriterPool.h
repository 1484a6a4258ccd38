#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <stop_token>
#include <thread>
#include <vector>

#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspection.h"

namespace tomekeeper {

// Fixed-size buffers that the archive is read into, each shared by the entries
// whose bytes lie in it. A fixed number exists, so the bytes in flight between
// the reader and the writers stay bounded. Safe from any thread.
class ArchiveBlockPool {
 public:
  using Block = std::vector<std::uint8_t>;

  ArchiveBlockPool(std::size_t blockSize, std::size_t blockCount);

  // Waits for a free block; it comes back to the pool when its last holder lets go.
  std::shared_ptr<Block> acquire();
  std::size_t blockSize() const { return blockSize_; }

 private:
  struct State;
  std::shared_ptr<State> state_;
  std::size_t blockSize_;
};

// A run of bytes inside one block.
struct ArchiveSlice {
  std::shared_ptr<const ArchiveBlockPool::Block> block;
  std::size_t offset = 0;
  std::size_t length = 0;

  std::span<const std::uint8_t> bytes() const {
    return block ? std::span(*block).subspan(offset, length) : std::span<const std::uint8_t>();
  }
};

// Writes file entries on worker threads: one entry's bytes reach one worker in
// the order given, while different entries are inflated, checked against their
// size and CRC-32 and written on different workers at once. A reader thread
// (one at a time) calls begin, feed and finish; the workers own the output
// files. Failures: the first failure of any worker is kept, the workers drop
// what is queued behind it, `failed` turns true so the reader stops early, and
// `finish` rethrows it (EPUBArchiveExtractionFailureError or
// async::OperationCancelled).
class EntryWriterPool {
 public:
  class Entry;

  EntryWriterPool(std::size_t workerCount, std::size_t outputBufferSize,
                  EPUBArchiveExtractor::Durability durability, std::stop_token stopToken);
  // Drops queued work and joins the workers; the files they wrote stay.
  ~EntryWriterPool();
  EntryWriterPool(const EntryWriterPool&) = delete;
  EntryWriterPool& operator=(const EntryWriterPool&) = delete;

  // Hands a file entry to the least busy worker, which creates `outputPath`.
  std::shared_ptr<Entry> begin(const EPUBArchiveEntry& entry, std::filesystem::path outputPath);
  // The next bytes of the entry's data; `last` on its final piece. An entry
  // without data gets one empty, last piece.
  void feed(const std::shared_ptr<Entry>& entry, ArchiveSlice slice, bool last);

  bool failed() const;
  // Waits until every worker has written what it was given, then joins them.
  // Rethrows the first failure.
  void finish();

  // Workers for an archive of `fileCount` files on this machine.
  static std::size_t standardWorkerCount(std::size_t fileCount);

 private:
  struct Worker;
  struct WorkerTools;
  struct Job {
    std::shared_ptr<Entry> entry;
    ArchiveSlice slice;
    bool last = false;
    std::uint64_t cost = 0;
  };
  struct Worker {
    std::mutex lock;
    std::condition_variable wake;
    std::deque<Job> jobs;
    bool closed = false;
    std::uint64_t queuedBytes = 0;
    std::thread thread;
  };

  void run(Worker& worker);
  void recordFailure(std::exception_ptr failure);
  void closeAndJoin();

  std::size_t outputBufferSize_;
  EPUBArchiveExtractor::Durability durability_;
  std::stop_token stopToken_;
  std::vector<std::unique_ptr<Worker>> workers_;
  std::mutex failureLock_;
  std::exception_ptr failure_;
  std::atomic<bool> failed_ = false;
  // Held by a worker while it creates an output file.
  std::mutex creationLock_;
  bool joined_ = false;
};

}  // namespace tomekeeper

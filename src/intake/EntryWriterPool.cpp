#include "intake/EntryWriterPool.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

#include "async/OperationCancelled.h"
#include "async/Task.h"
#include "intake/IntakeFailures.h"
#include "intake/ZipCRC32.h"
#include "platform/FileDescriptor.h"
#include "platform/FileSystem.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using ExtractionFailure = EPUBArchiveExtractionFailure;

[[noreturn]] void fail(ExtractionFailure failure) {
  throw EPUBArchiveExtractionFailureError(failure);
}

// One output file, closed on destruction when the normal close did not happen.
class OutputFile {
 public:
  OutputFile(FileSystem& fileSystem, const fs::path& path)
      : fileSystem_(fileSystem),
        file_(fileSystem,
              fileSystem.open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666)) {
    if (!file_.isOpen()) fail(ExtractionFailure::cannotCreateOutput);
  }

  void write(const std::uint8_t* bytes, std::size_t count) {
    while (count > 0) {
      const ssize_t written = fileSystem_.write(file_.get(), bytes, count);
      if (written < 0) {
        if (errno == EINTR) continue;
        fail(ExtractionFailure::cannotCreateOutput);
      }
      bytes += written;
      count -= static_cast<std::size_t>(written);
    }
  }

  // Flushes to stable storage when asked to, then closes. Under the one syncfs
  // before the commit, a large file's writeback starts now, so that the disk
  // writes it while the next entries are written and the syncfs finds less
  // to do; that only starts the writes, and a failure of it is left to the
  // syncfs, which sees every write of the file system.
  void close(EPUBArchiveExtractor::Durability durability, std::uint64_t size) {
    constexpr std::uint64_t kEarlyWritebackSize = 128 * 1024;
    if (durability == EPUBArchiveExtractor::Durability::synchronizeOnceBeforeCommit &&
        size >= kEarlyWritebackSize) {
      ::sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    }
    const bool synchronized = durability != EPUBArchiveExtractor::Durability::synchronizeEachFile ||
                              fileSystem_.synchronize(file_.get()) == 0;
    try {
      file_.close();
    } catch (const std::system_error&) {
      fail(ExtractionFailure::cannotCreateOutput);
    }
    if (!synchronized) fail(ExtractionFailure::cannotCreateOutput);
  }

 private:
  FileSystem& fileSystem_;
  FileDescriptor file_;
};

// Size and CRC of the bytes produced for one entry, checked before each write
// so that a surplus byte never reaches the disk.
class Verification {
 public:
  explicit Verification(const EPUBArchiveEntry& entry)
      : expectedSize_(entry.uncompressedSize), expectedCRC_(entry.crc32) {}

  void accept(const std::uint8_t* bytes, std::size_t count, OutputFile& output) {
    const std::uint64_t written = bytesWritten_ + count;
    if (written < bytesWritten_ || written > expectedSize_) fail(ExtractionFailure::sizeMismatch);
    bytesWritten_ = written;
    crc_ = ZipCRC32::update(crc_, std::span(bytes, count));
    output.write(bytes, count);
  }

  void finish() const {
    if (bytesWritten_ != expectedSize_) fail(ExtractionFailure::sizeMismatch);
    if (ZipCRC32::finish(crc_) != expectedCRC_) fail(ExtractionFailure::checksumMismatch);
  }

  std::uint64_t expectedSize() const { return expectedSize_; }

 private:
  std::uint64_t expectedSize_;
  std::uint32_t expectedCRC_;
  std::uint64_t bytesWritten_ = 0;
  std::uint32_t crc_ = ZipCRC32::kInitialState;
};

// A raw-deflate decoder fed piece by piece; destroyed on every path.
class Inflater {
 public:
  Inflater() {
    if (inflateInit2(&stream_, -15) != Z_OK) fail(ExtractionFailure::decompressionFailed);
  }
  ~Inflater() { inflateEnd(&stream_); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  void feed(std::span<const std::uint8_t> input, bool last, std::vector<std::uint8_t>& buffer,
            Verification& verification, OutputFile& output) {
    // Bytes behind the stream's end, in this piece or a later one, are trailing data.
    if (ended_ && !input.empty()) fail(ExtractionFailure::decompressionFailed);
    stream_.next_in = const_cast<Bytef*>(input.data());
    stream_.avail_in = static_cast<uInt>(input.size());
    while (!ended_) {
      stream_.next_out = buffer.data();
      stream_.avail_out = static_cast<uInt>(buffer.size());
      const int status = inflate(&stream_, Z_NO_FLUSH);
      const std::size_t produced = buffer.size() - stream_.avail_out;
      if (produced > 0) verification.accept(buffer.data(), produced, output);
      if (status == Z_STREAM_END) {
        ended_ = true;
        break;
      }
      // Z_BUF_ERROR only says that no progress was possible: the stall test below decides.
      if (status != Z_OK && status != Z_BUF_ERROR) fail(ExtractionFailure::decompressionFailed);
      if (last && stream_.avail_in == 0 && produced == 0) {
        fail(ExtractionFailure::decompressionFailed);
      }
      if (!last && stream_.avail_in == 0) break;
    }
    if (stream_.avail_in != 0) fail(ExtractionFailure::decompressionFailed);
    if (last && !ended_) fail(ExtractionFailure::decompressionFailed);
  }

 private:
  z_stream stream_{};
  bool ended_ = false;
};

// Inflates a whole raw-deflate stream in one call, about twice as fast as
// zlib's stream: for an entry whose compressed bytes arrive as one piece and
// whose record promises at most a buffer's worth. One per worker.
class WholeInflater {
 public:
  WholeInflater() : decompressor_(libdeflate_alloc_decompressor()) {
    if (!decompressor_) throw std::bad_alloc();
  }
  ~WholeInflater() { libdeflate_free_decompressor(decompressor_); }
  WholeInflater(const WholeInflater&) = delete;
  WholeInflater& operator=(const WholeInflater&) = delete;

  // Inflates `input` into `buffer`, which holds at least the expected size,
  // and hands the bytes on; nothing reaches `output` from a stream that is
  // corrupt, runs short, has bytes behind its end or makes more than the
  // record says.
  void inflate(std::span<const std::uint8_t> input, std::vector<std::uint8_t>& buffer,
               Verification& verification, OutputFile& output) {
    std::size_t consumed = 0;
    std::size_t produced = 0;
    const auto expected = static_cast<std::size_t>(verification.expectedSize());
    const libdeflate_result result = libdeflate_deflate_decompress_ex(
        decompressor_, input.data(), input.size(), buffer.data(), expected, &consumed, &produced);
    if (result == LIBDEFLATE_INSUFFICIENT_SPACE) fail(ExtractionFailure::sizeMismatch);
    if (result != LIBDEFLATE_SUCCESS || consumed != input.size()) {
      fail(ExtractionFailure::decompressionFailed);
    }
    if (produced > 0) verification.accept(buffer.data(), produced, output);
  }

 private:
  libdeflate_decompressor* decompressor_;
};

}  // namespace

// What a worker keeps for itself: its output buffer and its whole-stream inflater.
struct EntryWriterPool::WorkerTools {
  explicit WorkerTools(std::size_t bufferSize) : buffer(bufferSize) {}
  std::vector<std::uint8_t> buffer;
  WholeInflater wholeInflater;
};

// What a worker keeps of one entry between its pieces.
class EntryWriterPool::Entry {
 public:
  Entry(const EPUBArchiveEntry& entry, fs::path outputPath)
      : entry_(entry), outputPath_(std::move(outputPath)), verification_(entry) {}

  void write(const ArchiveSlice& slice, bool last, WorkerTools& tools,
             EPUBArchiveExtractor::Durability durability, std::mutex& creation) {
    const bool whole = !output_ && last && entry_.compressionMethod == 8 &&
                       entry_.uncompressedSize <= tools.buffer.size();
    if (!output_) {
      if (entry_.compressionMethod != 0 && entry_.compressionMethod != 8) {
        fail(ExtractionFailure::invalidEntryMetadata);
      }
      {
        // Creating files in one directory is serial in the kernel, which makes a second
        // creator spin on the directory's lock; the workers take turns instead.
        const std::lock_guard hold(creation);
        output_.emplace(FileSystem::current(), outputPath_);
      }
      if (entry_.compressionMethod == 8) {
        if (entry_.compressedSize == 0) fail(ExtractionFailure::decompressionFailed);
        if (!whole) inflater_.emplace();
      }
    }
    const std::span<const std::uint8_t> bytes = slice.bytes();
    if (whole) {
      tools.wholeInflater.inflate(bytes, tools.buffer, verification_, *output_);
    } else if (inflater_) {
      inflater_->feed(bytes, last, tools.buffer, verification_, *output_);
    } else {
      verification_.accept(bytes.data(), bytes.size(), *output_);
    }
    if (!last) return;
    verification_.finish();
    output_->close(durability, entry_.uncompressedSize);
    inflater_.reset();
  }

  // Where its pieces go; set by the reader with the first piece.
  Worker* worker = nullptr;

 private:
  EPUBArchiveEntry entry_;
  fs::path outputPath_;
  Verification verification_;
  std::optional<OutputFile> output_;
  std::optional<Inflater> inflater_;
};

struct ArchiveBlockPool::State {
  std::mutex lock;
  std::condition_variable returned;
  std::vector<std::unique_ptr<Block>> free;
};

ArchiveBlockPool::ArchiveBlockPool(std::size_t blockSize, std::size_t blockCount)
    : state_(std::make_shared<State>()), blockSize_(blockSize) {
  for (std::size_t index = 0; index < blockCount; ++index) {
    state_->free.push_back(std::make_unique<Block>(blockSize));
  }
}

std::shared_ptr<ArchiveBlockPool::Block> ArchiveBlockPool::acquire() {
  std::unique_lock hold(state_->lock);
  state_->returned.wait(hold, [this] { return !state_->free.empty(); });
  Block* block = state_->free.back().release();
  state_->free.pop_back();
  // The deleter keeps the pool's state alive, so a block may outlive the pool.
  return std::shared_ptr<Block>(block, [state = state_](Block* returning) {
    {
      const std::lock_guard hold(state->lock);
      state->free.emplace_back(returning);
    }
    state->returned.notify_one();
  });
}

EntryWriterPool::EntryWriterPool(std::size_t workerCount, std::size_t outputBufferSize,
                                 EPUBArchiveExtractor::Durability durability,
                                 std::stop_token stopToken)
    : outputBufferSize_(outputBufferSize),
      durability_(durability),
      stopToken_(std::move(stopToken)) {
  workerCount = std::max<std::size_t>(workerCount, 1);
  for (std::size_t index = 0; index < workerCount; ++index) {
    workers_.push_back(std::make_unique<Worker>());
  }
  for (auto& worker : workers_) {
    worker->thread = std::thread([this, &worker = *worker] { run(worker); });
  }
}

EntryWriterPool::~EntryWriterPool() {
  failed_ = true;
  closeAndJoin();
}

std::size_t EntryWriterPool::standardWorkerCount(std::size_t fileCount) {
  const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
  return std::clamp<std::size_t>(std::min(cores, fileCount), 1, 4);
}

std::shared_ptr<EntryWriterPool::Entry> EntryWriterPool::begin(const EPUBArchiveEntry& entry,
                                                               fs::path outputPath) {
  return std::make_shared<Entry>(entry, std::move(outputPath));
}

void EntryWriterPool::feed(const std::shared_ptr<Entry>& entry, ArchiveSlice slice, bool last) {
  // An entry stays with the worker that has its first piece; a new one goes to
  // the worker with the fewest bytes waiting. Creating a file counts as a few
  // kilobytes more.
  constexpr std::uint64_t kFileCost = 4096;
  std::uint64_t cost = slice.length;
  if (entry->worker == nullptr) {
    Worker* least = nullptr;
    std::uint64_t leastBytes = 0;
    for (auto& worker : workers_) {
      const std::lock_guard probe(worker->lock);
      if (least == nullptr || worker->queuedBytes < leastBytes) {
        least = worker.get();
        leastBytes = worker->queuedBytes;
      }
    }
    entry->worker = least;
    cost += kFileCost;
  }
  Worker& worker = *entry->worker;
  {
    const std::lock_guard hold(worker.lock);
    worker.queuedBytes += cost;
    worker.jobs.push_back(Job{entry, std::move(slice), last, cost});
  }
  worker.wake.notify_one();
}

bool EntryWriterPool::failed() const {
  return failed_.load(std::memory_order_relaxed);
}

void EntryWriterPool::run(Worker& worker) {
  WorkerTools tools(outputBufferSize_);
  while (true) {
    Job job;
    {
      std::unique_lock hold(worker.lock);
      worker.wake.wait(hold, [&worker] { return !worker.jobs.empty() || worker.closed; });
      if (worker.jobs.empty()) return;
      job = std::move(worker.jobs.front());
      worker.jobs.pop_front();
    }
    const std::uint64_t cost = job.cost;
    if (!failed()) {
      try {
        async::throwIfCancelled(stopToken_);
        job.entry->write(job.slice, job.last, tools, durability_, creationLock_);
      } catch (...) {
        recordFailure(std::current_exception());
      }
    }
    // The block goes back to the pool before the next job waits for work.
    job = Job{};
    const std::lock_guard hold(worker.lock);
    worker.queuedBytes -= cost;
  }
}

void EntryWriterPool::recordFailure(std::exception_ptr failure) {
  const std::lock_guard hold(failureLock_);
  if (!failure_) failure_ = std::move(failure);
  failed_ = true;
}

void EntryWriterPool::closeAndJoin() {
  if (joined_) return;
  joined_ = true;
  for (auto& worker : workers_) {
    {
      const std::lock_guard hold(worker->lock);
      worker->closed = true;
    }
    worker->wake.notify_one();
  }
  for (auto& worker : workers_) worker->thread.join();
}

void EntryWriterPool::finish() {
  closeAndJoin();
  const std::lock_guard hold(failureLock_);
  if (failure_) std::rethrow_exception(failure_);
}

}  // namespace tomekeeper

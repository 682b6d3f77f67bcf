// Shared pieces of the fuzz targets: a property check that stops the run, a
// socket pair that hands an input to the readers, and the body readers' model check.
#ifndef HTTP_UTIL_FUZZ_SUPPORT_H
#define HTTP_UTIL_FUZZ_SUPPORT_H

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "http_util.h"

// A broken property is a finding like a crash: libFuzzer saves the input.
#define FUZZ_CHECK(cond)                                                            \
    do {                                                                            \
        if (!(cond)) {                                                              \
            fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond); \
            abort();                                                                \
        }                                                                           \
    } while (0)

namespace fuzz {

// The input as a C string: the library's text functions read up to a NUL.
inline std::string text(const uint8_t *data, size_t size) {
    return std::string(reinterpret_cast<const char *>(data), size);
}

// Takes n bytes off the front of the input as a little-endian number.
inline uint32_t take(const uint8_t *&data, size_t &size, size_t n) {
    uint32_t v = 0;
    for (size_t i = 0; i < n && size > 0; ++i, ++data, --size) v |= uint32_t(*data) << (8 * i);
    return v;
}

// The lowest free descriptor number: unchanged after a run unless the
// library left a descriptor open.
inline int lowest_free_fd() {
    int fd = dup(0);
    if (fd >= 0) close(fd);
    return fd;
}

// A stream socket whose peer has sent the whole input and shut its side,
// so that every wait of a reader ends at once: on data, or on the close.
// Inputs beyond the socket buffer are refused (ok() false) rather than
// written by a second thread: the fuzzer's max_len keeps them far below.
class Feed {
public:
    static constexpr size_t kMax = 64 * 1024;

    explicit Feed(const uint8_t *data, size_t size) {
        int sv[2];
        if (size > kMax || socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) return;
        reader_ = sv[0];
        size_t done = 0;
        while (done < size) {
            ssize_t n = write(sv[1], data + done, size - done);
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        close(sv[1]);
        ok_ = done == size;
    }
    ~Feed() {
        if (reader_ >= 0) close(reader_);
    }
    Feed(const Feed &) = delete;
    Feed &operator=(const Feed &) = delete;

    bool ok() const { return ok_; }
    int fd() const { return reader_; }

    // What the reader left in the socket; the writer has closed, so this
    // ends at once.
    std::string rest() const {
        std::string out;
        char buf[4096];
        for (;;) {
            ssize_t n = read(reader_, buf, sizeof buf);
            if (n <= 0) break;
            out.append(buf, static_cast<size_t>(n));
        }
        return out;
    }

private:
    int reader_ = -1;
    bool ok_ = false;
};

// Where a body reader puts its blocks: the caller's data sink, a stream
// (checked against skip), or nowhere; a progress callback may cancel.
// The record's priv[0], which the library never touches, leads back here.
struct BodySink {
    http_progress progress = {};
    std::string data;        // what on_data received
    uint32_t calls = 0;      // on_progress calls with a non-zero count
    uint32_t cancel_at = 0;  // cancel on that call; 0 = never

    BodySink(bool take_data, uint32_t cancel) : cancel_at(cancel) {
        progress.priv[0] = reinterpret_cast<uintptr_t>(this);
        progress.on_progress = on_progress;
        if (take_data) progress.on_data = on_data;
    }
    static BodySink *of(http_progress *p) { return reinterpret_cast<BodySink *>(p->priv[0]); }
    static int on_data(http_progress *p, const void *d, uint32_t len) {
        of(p)->data.append(static_cast<const char *>(d), len);
        return 0;
    }
    static int on_progress(http_progress *p, uint32_t count) {
        BodySink *self = of(p);
        if (count == 0) return 0;
        ++self->calls;
        return self->cancel_at != 0 && self->calls == self->cancel_at ? 1 : 0;
    }
};

// How a body reader is called, taken off the front of the input: where the
// blocks go, how many leading bytes the stream skips, and after which block
// the progress callback cancels.
struct BodyCall {
    enum Target { kSink, kFile, kNoStream, kFileNoRef };
    Target target;
    uint32_t skip;
    uint32_t cancel_at;

    static BodyCall take_from(const uint8_t *&data, size_t &size) {
        uint32_t mode = take(data, size, 1);
        uint32_t skip = take(data, size, 2);
        return BodyCall{static_cast<Target>(mode & 3), skip, (mode >> 2) & 7};
    }
};

// A stream in memory for the readers' output; bytes() after the reader.
class MemFile {
public:
    MemFile() : f_(open_memstream(&buf_, &len_)) {}
    ~MemFile() {
        if (f_ != nullptr) fclose(f_);
        free(buf_);
    }
    MemFile(const MemFile &) = delete;
    MemFile &operator=(const MemFile &) = delete;
    FILE *get() const { return f_; }
    std::string bytes() {
        fflush(f_);
        return std::string(buf_ != nullptr ? buf_ : "", len_);
    }

private:
    char *buf_ = nullptr;
    size_t len_ = 0;
    FILE *f_;
};

// What a body reader should do with an input that is all in the socket:
// the blocks it delivers (offset and length in the input), its result and
// how many input bytes it takes off the socket.
struct BodyModel {
    struct Block {
        size_t at, len;
    };
    std::vector<Block> blocks;
    int rc = HTTP_UTIL_OK;
    size_t consumed = 0;

    // The progress callback's cancel after block n (1 = the first).
    void cancel_after(uint32_t n) {
        if (n == 0 || n > blocks.size()) return;
        blocks.resize(n);
        rc = HTTP_UTIL_ERR_CANCELED;
        consumed = blocks.back().at + blocks.back().len;
    }
};

// Runs a body reader over body as call says and compares every outcome
// with the model: result, bytes delivered, progress counts, bytes left in
// the socket, descriptors.
template <typename Reader>
void check_body_reader(const BodyCall &call, const std::string &body, BodyModel model,
                       Reader read) {
    const int fds = lowest_free_fd();
    const bool has_ref = call.target != BodyCall::kFileNoRef;
    if (has_ref) model.cancel_after(call.cancel_at);
    std::string want;
    for (const auto &b : model.blocks) want.append(body, b.at, b.len);

    BodySink sink(call.target == BodyCall::kSink, call.cancel_at);
    http_progress_ref ref = {};
    ref.progress = &sink.progress;
    ref.local_mtime = -1;
    MemFile file;
    FILE *out = call.target == BodyCall::kFile || call.target == BodyCall::kFileNoRef ? file.get()
                                                                                       : nullptr;
    int rc;
    std::string rest;
    {
        Feed feed(reinterpret_cast<const uint8_t *>(body.data()), body.size());
        if (!feed.ok()) return;
        rc = read(feed.fd(), out, has_ref ? &ref : nullptr, call.skip);
        rest = feed.rest();
    }
    FUZZ_CHECK(lowest_free_fd() == fds);
    FUZZ_CHECK(rc == model.rc);
    FUZZ_CHECK(rest == body.substr(model.consumed));
    if (call.target == BodyCall::kSink) FUZZ_CHECK(sink.data == want);
    // The stream never gets the first skip bytes; the sink ignores skip.
    if (out != nullptr) FUZZ_CHECK(file.bytes() == want.substr(std::min<size_t>(call.skip, want.size())));
    if (has_ref) {
        FUZZ_CHECK(sink.progress.done == want.size());
        FUZZ_CHECK(sink.calls == model.blocks.size());
    }
}

}  // namespace fuzz

#endif

#include "file_server.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace file_server {

namespace {

constexpr size_t kPiece = 8000;  // not a power of two: chunk sizes look like real ones

std::atomic<bool> g_stopping{false};

// A URL path as a relative path below a served directory; empty when it
// names nothing there (empty, or trying to climb out with "..").
std::string safe_relative(const std::string &url_path) {
    std::string out;
    size_t pos = 0;
    while (pos <= url_path.size()) {
        size_t end = url_path.find('/', pos);
        if (end == std::string::npos)
            end = url_path.size();
        std::string part = url_path.substr(pos, end - pos);
        pos = end + 1;
        if (part.empty() || part == ".")
            continue;
        if (part == "..")
            return std::string();
        out += (out.empty() ? "" : "/") + part;
    }
    return out;
}

std::string http_date(time_t t) {
    struct tm tm;
    char buf[64];
    gmtime_r(&t, &tm);
    strftime(buf, sizeof buf, "%a, %d %b %Y %H:%M:%S GMT", &tm);
    return buf;
}

// Holds a GET body to a byte rate: sleeps until the bytes sent so far are
// due. Pacing is the point here, so sleeping is right.
class Pacer {
public:
    explicit Pacer(long rate) : rate_(rate), start_(std::chrono::steady_clock::now()) {}
    size_t piece() const {
        return rate_ > 0 ? std::max<size_t>(1, std::min<size_t>(kPiece, rate_ / 10)) : kPiece * 8;
    }
    void account(size_t n) {
        if (rate_ <= 0)
            return;
        sent_ += n;
        auto due = start_ + std::chrono::microseconds(sent_ * 1000000 / rate_);
        std::this_thread::sleep_until(due);
    }

private:
    long rate_;
    std::chrono::steady_clock::time_point start_;
    unsigned long long sent_ = 0;
};

struct OpenFile {
    int fd = -1;
    off_t size = 0;
    time_t mtime = 0;
    ~OpenFile() {
        if (fd >= 0)
            close(fd);
    }
};

std::shared_ptr<OpenFile> open_regular(const std::string &path) {
    auto f = std::make_shared<OpenFile>();
    f->fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (f->fd < 0 || fstat(f->fd, &st) != 0 || !S_ISREG(st.st_mode))
        return nullptr;
    f->size = st.st_size;
    f->mtime = st.st_mtime;
    return f;
}

// Writes up to `length` bytes of the file from `offset` into the sink.
bool send_piece(OpenFile &f, Pacer &pacer, size_t offset, size_t length, httplib::DataSink &sink,
                size_t *sent) {
    if (g_stopping.load())
        return false;
    std::vector<char> buf(std::min(length, pacer.piece()));
    ssize_t n = pread(f.fd, buf.data(), buf.size(), static_cast<off_t>(offset));
    if (n <= 0)
        return false;
    if (!sink.write(buf.data(), static_cast<size_t>(n)))
        return false;
    pacer.account(static_cast<size_t>(n));
    *sent = static_cast<size_t>(n);
    return true;
}

std::string origin(const httplib::Request &req) {
    std::string host = req.get_header_value("Host");
    return "http://" + (host.empty() ? std::string("127.0.0.1") : host);
}

void not_found(httplib::Response &res) {
    res.status = 404;
    res.set_content("not found\n", "text/plain");
}

// A Range the file cannot satisfy is answered 416 here, with the size, as
// an ordinary server does; valid ones are cut by httplib (206).
bool range_unsatisfiable(const httplib::Request &req, off_t size) {
    if (req.ranges.size() != 1)
        return false;
    auto r = req.ranges[0];
    if (r.first < 0)  // suffix form: bytes=-N
        return r.second == 0 || size == 0;
    return r.first >= size || (r.second >= 0 && r.second < r.first);
}

void serve_file(const Config &config, const std::string &url_path, bool chunked,
                const httplib::Request &req, httplib::Response &res) {
    std::string rel = safe_relative(url_path);
    auto file = rel.empty() ? nullptr : open_regular(config.root + "/" + rel);
    if (!file)
        return not_found(res);
    res.set_header("Last-Modified", http_date(file->mtime));
    res.set_header("Accept-Ranges", chunked ? "none" : "bytes");
    auto pacer = std::make_shared<Pacer>(config.slow);
    if (chunked) {
        // The whole file, in pieces that each become one chunk.
        res.set_chunked_content_provider(
            "application/octet-stream", [file, pacer](size_t offset, httplib::DataSink &sink) {
                if (offset >= static_cast<size_t>(file->size)) {
                    sink.done();
                    return true;
                }
                size_t sent = 0;
                return send_piece(*file, *pacer, offset, file->size - offset, sink, &sent);
            });
        return;
    }
    if (range_unsatisfiable(req, file->size)) {
        res.status = 416;
        res.set_header("Content-Range", "bytes */" + std::to_string(file->size));
        return;
    }
    res.set_content_provider(
        static_cast<size_t>(file->size), "application/octet-stream",
        [file, pacer](size_t offset, size_t length, httplib::DataSink &sink) {
            while (length > 0) {
                size_t sent = 0;
                if (!send_piece(*file, *pacer, offset, length, sink, &sent))
                    return false;
                offset += sent;
                length -= sent;
            }
            return true;
        });
}

void redirect(const std::string &hops_text, const std::string &name, const httplib::Request &req,
              httplib::Response &res) {
    int hops = std::atoi(hops_text.c_str());
    std::string next = hops <= 1 ? "/" + name : "/redirect/" + std::to_string(hops - 1) + "/" + name;
    res.set_redirect(origin(req) + next, 302);
}

// A file being uploaded: written beside its final name and renamed there
// only when the whole body arrived.
class Upload {
public:
    explicit Upload(const std::string &target) : target_(target) {
        std::string tmpl = target + ".part-XXXXXX";
        std::vector<char> buf(tmpl.begin(), tmpl.end());
        buf.push_back('\0');
        fd_ = mkstemp(buf.data());
        if (fd_ >= 0)
            temp_ = buf.data();
    }
    ~Upload() {
        if (fd_ >= 0)
            close(fd_);
        if (!temp_.empty())
            unlink(temp_.c_str());
    }
    bool write(const char *data, size_t len) {
        while (len > 0) {
            ssize_t n = ::write(fd_, data, len);
            if (n <= 0)
                return false;
            data += n;
            len -= static_cast<size_t>(n);
            size_ += static_cast<size_t>(n);
        }
        return true;
    }
    bool commit() {
        bool ok = fd_ >= 0 && fchmod(fd_, 0644) == 0 && close(fd_) == 0;
        fd_ = -1;
        ok = ok && rename(temp_.c_str(), target_.c_str()) == 0;
        if (ok)
            temp_.clear();
        return ok;
    }
    bool ok() const { return fd_ >= 0; }
    size_t size() const { return size_; }

private:
    std::string target_, temp_;
    int fd_ = -1;
    size_t size_ = 0;
};

std::string base_name(const std::string &path) {
    size_t slash = path.find_last_of('/');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    return base == "." || base == ".." ? std::string() : base;
}

bool make_parent_dirs(const std::string &root, const std::string &rel) {
    size_t pos = 0;
    while ((pos = rel.find('/', pos)) != std::string::npos) {
        std::string dir = root + "/" + rel.substr(0, pos++);
        if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

void bad_request(httplib::Response &res, const std::string &why) {
    res.status = 400;
    res.set_content(why + "\n", "text/plain");
}

void receive_multipart(const Config &config, const httplib::ContentReader &reader,
                       httplib::Response &res) {
    std::unique_ptr<Upload> current;
    std::string current_name, report, failure;
    auto finish = [&] {
        if (current && failure.empty()) {
            if (current->commit())
                report += "stored " + current_name + " (" + std::to_string(current->size()) +
                          " bytes)\n";
            else
                failure = "cannot store " + current_name;
        }
        current.reset();
    };
    bool read_ok = reader(
        [&](const httplib::MultipartFormData &part) {
            finish();
            if (part.filename.empty())  // a plain form field: nothing to store
                return true;
            current_name = base_name(part.filename);
            if (current_name.empty()) {
                failure = "no usable file name in \"" + part.filename + "\"";
                return false;
            }
            current.reset(new Upload(config.upload_dir + "/" + current_name));
            return current->ok() || (failure = "cannot create " + current_name, false);
        },
        [&](const char *data, size_t len) {
            return !current || current->write(data, len) || (failure = "write failed", false);
        });
    if (read_ok)
        finish();
    current.reset();
    if (!failure.empty() || !read_ok)
        return bad_request(res, failure.empty() ? "malformed upload" : failure);
    if (report.empty())
        return bad_request(res, "no file part");
    res.set_content(report, "text/plain");
}

void receive_raw(const Config &config, const std::string &url_path,
                 const httplib::ContentReader &reader, httplib::Response &res) {
    std::string rel = safe_relative(url_path);
    if (rel.empty() || !make_parent_dirs(config.upload_dir, rel))
        return bad_request(res, "no usable target path");
    Upload upload(config.upload_dir + "/" + rel);
    if (!upload.ok())
        return bad_request(res, "cannot create " + rel);
    bool ok = reader([&](const char *data, size_t len) { return upload.write(data, len); });
    if (!ok || !upload.commit())
        return bad_request(res, "upload of " + rel + " failed");
    res.set_content("stored " + rel + " (" + std::to_string(upload.size()) + " bytes)\n",
                    "text/plain");
}

}  // namespace

void stop_transfers() { g_stopping.store(true); }

void add_routes(httplib::Server &server, const Config &config) {
    server.Get(R"(/redirect/(\d+)/(.+))", [](const httplib::Request &req, httplib::Response &res) {
        redirect(req.matches[1], req.matches[2], req, res);
    });
    server.Get(R"(/chunked/(.+))", [config](const httplib::Request &req, httplib::Response &res) {
        serve_file(config, req.matches[1], true, req, res);
    });
    server.Get(R"(/(.*))", [config](const httplib::Request &req, httplib::Response &res) {
        serve_file(config, req.matches[1], false, req, res);
    });
    server.Post(R"(/(.*))", [config](const httplib::Request &req, httplib::Response &res,
                                     const httplib::ContentReader &reader) {
        if (req.is_multipart_form_data())
            receive_multipart(config, reader, res);
        else
            receive_raw(config, req.matches[1], reader, res);
    });
}

}  // namespace file_server

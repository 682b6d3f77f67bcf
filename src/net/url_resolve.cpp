// A redirection target that is not an absolute URL, resolved against the
// URL that was asked for as RFC 3986 section 5 resolves a reference.
#include <ctype.h>
#include <string.h>

#include <string_view>

#include "net/url.h"

namespace {

using http_util_internal::from;
using http_util_internal::head;
using std::string_view;

// A text of bounded size under construction; too long once anything did
// not fit.
class Bounded {
public:
    Bounded(char *buf, size_t size) : buf_(buf), size_(size) { buf_[0] = '\0'; }
    void add(string_view s) {
        if (s.empty()) return;  // an empty view may have no data at all
        if (len_ + s.size() >= size_) {
            over_ = true;
            return;
        }
        memcpy(buf_ + len_, s.data(), s.size());
        len_ += s.size();
        buf_[len_] = '\0';
    }
    // Drops the last segment and the "/" before it.
    void pop_segment() {
        while (len_ > 0 && buf_[len_ - 1] != '/') --len_;
        if (len_ > 0) --len_;
        buf_[len_] = '\0';
    }
    string_view text() const { return string_view(buf_, len_); }
    bool over() const { return over_; }

private:
    char *buf_;
    size_t size_;
    size_t len_ = 0;
    bool over_ = false;
};

bool starts(string_view s, string_view prefix) { return head(s, prefix.size()) == prefix; }

// A scheme followed by ":" begins an absolute URL.
bool has_scheme(string_view s) {
    if (s.empty() || !isalpha(static_cast<unsigned char>(s[0]))) return false;
    for (char c : s) {
        if (c == ':') return true;
        if (!isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return false;
    }
    return false;
}

// The path of a reference ends at its query or fragment.
size_t path_end(string_view s) {
    size_t end = s.find_first_of("?#");
    return end == string_view::npos ? s.size() : end;
}

// The path with its "." and ".." segments worked out (RFC 3986 5.2.4).
void remove_dot_segments(string_view in, Bounded &out) {
    while (!in.empty()) {
        if (starts(in, "../")) {
            in.remove_prefix(3);
        } else if (starts(in, "./") || starts(in, "/./")) {
            in.remove_prefix(2);
        } else if (in == "/.") {
            in = "/";
        } else if (starts(in, "/../")) {
            in.remove_prefix(3);
            out.pop_segment();
        } else if (in == "/..") {
            in = "/";
            out.pop_segment();
        } else if (in == "." || in == "..") {
            in = {};
        } else {
            size_t next = in.find('/', 1);
            if (next == string_view::npos) next = in.size();
            out.add(head(in, next));
            in.remove_prefix(next);
        }
    }
}

}  // namespace

namespace http_util_internal {

bool http_resolve_location(char (&url)[kUrlBufSize], const char *location) {
    const string_view ref = location;
    char merged_buf[2 * kUrlBufSize], path_buf[kUrlBufSize], out_buf[kUrlBufSize];
    Bounded merged(merged_buf, sizeof merged_buf), path(path_buf, sizeof path_buf);
    Bounded out(out_buf, sizeof out_buf);
    const string_view base = url;

    if (has_scheme(ref)) {
        out.add(ref);  // absolute: followed as given
    } else if (starts(ref, "//")) {
        // A network path: the scheme of the base, the host of the reference.
        const size_t host_end = ref.find_first_of("/?#", 2);
        const string_view rest = host_end == string_view::npos ? string_view() : from(ref, host_end);
        out.add(head(base, base.find(':') + 1));
        out.add(head(ref, ref.size() - rest.size()));
        remove_dot_segments(head(rest, path_end(rest)), path);
        out.add(path.text());
        out.add(from(rest, path_end(rest)));
    } else {
        // The base's scheme and host (the parser passes over extra slashes
        // after "http://"), its path and its query.
        const size_t host_start = base.find_first_not_of('/', base.find(':') + 1);
        size_t host_end = base.find_first_of("/?#", host_start == string_view::npos ? base.size() : host_start);
        if (host_end == string_view::npos) host_end = base.size();
        const string_view rest = from(base, host_end);
        const string_view base_path = head(rest, path_end(rest));
        const string_view base_query =
            head(from(rest, base_path.size()), rest.find('#') - base_path.size());
        const string_view ref_path = head(ref, path_end(ref));
        out.add(head(base, host_end));
        if (ref_path.empty()) {
            out.add(base_path);
            out.add(ref.empty() || ref[0] == '#' ? base_query : string_view());
        } else if (ref_path[0] == '/') {
            remove_dot_segments(ref_path, path);
        } else {
            // Merged with the base path up to its last "/".
            const size_t slash = base_path.rfind('/');
            merged.add(slash == string_view::npos ? string_view("/") : head(base_path, slash + 1));
            merged.add(ref_path);
            remove_dot_segments(merged.text(), path);
        }
        out.add(path.text());
        out.add(from(ref, ref_path.size()));
    }
    if (out.over() || path.over()) return false;
    memcpy(url, out_buf, sizeof url);
    return true;
}

}  // namespace http_util_internal

#include "curl_client.h"

#include <strings.h>

#include <cstdlib>
#include <sstream>

#include "child_process.h"
#include "file_util.h"
#include "temp_dir.h"

namespace peer {

std::string CurlResult::header(const std::string &name, bool *found) const {
    std::istringstream in(head);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        size_t colon = line.find(':');
        if (colon == name.size() && strncasecmp(line.c_str(), name.c_str(), colon) == 0) {
            if (found)
                *found = true;
            size_t start = line.find_first_not_of(' ', colon + 1);
            return start == std::string::npos ? std::string() : line.substr(start);
        }
    }
    if (found)
        *found = false;
    return std::string();
}

bool have_curl() { return !find_program("curl").empty(); }

CurlResult curl(const std::vector<std::string> &args) {
    CurlResult result;
    TempDir dir;
    std::vector<std::string> argv = {"curl", "-sS", "--max-time", "20", "-o", dir.file("body"),
                                     "-D", dir.file("head"),
                                     "-w", "%{http_code}\t%{num_redirects}\t%{url_effective}"};
    argv.insert(argv.end(), args.begin(), args.end());
    RunResult run = run_program(argv, milliseconds(30000));
    result.exit_code = run.exit_code;
    result.error = run.err;
    std::istringstream w(run.out);
    std::string field;
    if (std::getline(w, field, '\t'))
        result.status = std::atoi(field.c_str());
    if (std::getline(w, field, '\t'))
        result.redirects = std::atoi(field.c_str());
    std::getline(w, result.final_url);
    result.body = read_file(dir.file("body"));
    // With -L the head file holds every response's head; keep the last.
    std::string heads = read_file(dir.file("head"));
    size_t end = heads.size() > 4 ? heads.size() - 4 : 0;
    size_t last = end > 0 ? heads.rfind("\r\n\r\n", end - 1) : std::string::npos;
    result.head = last == std::string::npos ? heads : heads.substr(last + 4);
    return result;
}

bool decode_chunked(const std::string &raw, std::string *body, int *chunks) {
    body->clear();
    *chunks = 0;
    size_t pos = 0;
    for (;;) {
        size_t eol = raw.find("\r\n", pos);
        if (eol == std::string::npos)
            return false;
        std::string size_text = raw.substr(pos, eol - pos);
        char *end = nullptr;
        unsigned long size = std::strtoul(size_text.c_str(), &end, 16);
        if (size_text.empty() || (*end != '\0' && *end != ';'))
            return false;
        pos = eol + 2;
        if (size == 0)
            return raw.compare(pos, std::string::npos, "\r\n") == 0;  // no trailers expected
        if (raw.size() < pos + size + 2 || raw.compare(pos + size, 2, "\r\n") != 0)
            return false;
        body->append(raw, pos, size);
        ++*chunks;
        pos += size + 2;
    }
}

}  // namespace peer

// curl as the independent client that proves the peers: one transfer, its
// status, the last response's head and the body as received.
#ifndef HTTP_UTIL_TESTS_CURL_CLIENT_H
#define HTTP_UTIL_TESTS_CURL_CLIENT_H

#include <string>
#include <vector>

namespace peer {

struct CurlResult {
    int exit_code = -1;     // curl's own exit code
    int status = 0;         // HTTP status of the last response
    int redirects = 0;      // redirections followed (-L)
    std::string final_url;  // the URL of the last response
    std::string head;       // the last response's head
    std::string body;       // the body as written by curl (--raw keeps the coding)
    std::string error;      // curl's stderr

    // Value of a header of the last response (first match, any case);
    // empty when absent, *found tells the difference.
    std::string header(const std::string &name, bool *found = nullptr) const;
};

bool have_curl();

// Runs curl -sS with `args` (URL included) and collects the result.
CurlResult curl(const std::vector<std::string> &args);

// Decodes a chunked body; false when it is not well formed. `chunks` gets
// the number of non-empty chunks.
bool decode_chunked(const std::string &raw, std::string *body, int *chunks);

}  // namespace peer

#endif

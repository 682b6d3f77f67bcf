// Follows one transfer through the library's log records, which the host
// emulation hands to the tool. On a terminal it says why an attempt failed
// and when the next one comes, where the library itself would pause in
// silence; afterwards it knows what the system said about a failure (the
// errno text, the file concerned) for the tool's one-line message.
#ifndef HTTP_UTIL_TOOL_TRANSFER_WATCH_H
#define HTTP_UTIL_TOOL_TRANSFER_WATCH_H

#include <cstdio>
#include <string>
#include <string_view>

class ProgressBar;

class TransferWatch {
public:
    struct Display {
        FILE *out = nullptr;          // where to tell about retries; nullptr: say nothing
        int attempts = 0;             // retries + 1
        ProgressBar *bar = nullptr;   // a bar on the same terminal, ended before a line
        bool ticks_on_out = false;    // the library's ticks share the terminal with out
        std::string url;              // the URL as given
        std::string dest;             // names the destination for write errors (a copy's
                                      // temporary file is not what the user asked for)
    };

    explicit TransferWatch(Display display);  // starts following the records
    ~TransferWatch();                         // stops
    TransferWatch(const TransferWatch &) = delete;
    TransferWatch &operator=(const TransferWatch &) = delete;

    // Why the transfer failed, as the system said it ("cannot write
    // out.bin: Is a directory", "Connection refused"); empty if it did not.
    const std::string &reason() const { return file_reason_.empty() ? why_ : file_reason_; }

    // One record, as the host emulation hands it over.
    void record(std::string_view func, std::string_view text);

private:
    void tell(double seconds);

    Display display_;
    int retries_ = 0;          // of the current URL
    std::string failure_;      // what the current attempt failed at
    std::string detail_;       // the record's words on it
    std::string why_;          // the system's reason for it
    std::string file_reason_;  // a local file that could not be written or read
    bool pending_ = false;     // a retry line waits for its drawn pause
    bool mid_line_ = false;    // the library's ticks left the terminal mid-line
};

#endif

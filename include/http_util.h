/*
 * libhttp_util: HTTP file transfer for the device's programs.
 *
 * Every transfer is one blocking call on the caller's thread and returns one
 * result code (HTTP_UTIL_OK or one of the HTTP_UTIL_ERR_* codes below);
 * http_util_strerr() turns a code into its English message.
 *
 * The header compiles as C99 and as C++. Records are plain structs whose
 * field order and sizes are part of the binary interface.
 *
 * Threads: transfers may run at once on different threads, each on its
 * own. Nothing they share is left unguarded: the log set-up runs once
 * however many threads start it (http_util_init), the text of
 * http_sock_ntop belongs to the calling thread, and dates are read without
 * any locale, so the host's own LC_TIME is never touched. What stays
 * process-wide, and unlocked, are the options and the log threshold: set
 * them before transfers start (see g_http_opt).
 */
#ifndef HTTP_UTIL_H
#define HTTP_UTIL_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/socket.h>
#include <time.h>

#if defined(__GNUC__)
#define HTTP_UTIL_API __attribute__((visibility("default")))
#else
#define HTTP_UTIL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Result codes. The numbers travel unchanged up to the caller and index
 * http_util_err_str; they are never renumbered.
 * ---------------------------------------------------------------------- */
enum {
    HTTP_UTIL_OK = 0,
    HTTP_UTIL_ERR_NOMEM = 1,
    HTTP_UTIL_ERR_PARAM = 2,
    HTTP_UTIL_ERR_RESOLVE = 3,
    HTTP_UTIL_ERR_CONNECT = 4,
    HTTP_UTIL_ERR_REDIRECT = 5,
    HTTP_UTIL_ERR_NOT_HTTP = 6,
    HTTP_UTIL_ERR_RECV_RSP = 7,
    HTTP_UTIL_ALREADY_DONE = 8,
    HTTP_UTIL_ERR_RECV_DATA = 9,
    HTTP_UTIL_NEED_RETRY = 10,
    HTTP_UTIL_ERR_PROTOCOL = 11,
    HTTP_UTIL_ERR_UNAUTHORIZED = 12,
    HTTP_UTIL_ERR_SEND = 13,
    HTTP_UTIL_ERR_NO_LOCAL_FILE = 14,
    HTTP_UTIL_ERR_UNEXPECTED_RSP = 15,
    HTTP_UTIL_ERR_CANCELED = 16,
    HTTP_UTIL_ERR_NOT_SUPPORTED = 17,
    HTTP_UTIL_ERR_NOT_FOUND = 18,
    HTTP_UTIL_ERR_FORBIDDEN = 19,
    HTTP_UTIL_ERR_RANGE = 20,
    HTTP_UTIL_ERR_NOT_OK = 21,
    HTTP_UTIL_ERR_URL_NOT_ASCII = 22,
    HTTP_UTIL_ERR_SAVE_FILE = 23,
    HTTP_UTIL_ERR_READ_FILE = 24,
    HTTP_UTIL_ERR_RSP_FORMAT = 25,
    HTTP_UTIL_ERR_RSP_TIMEOUT = 26,
    HTTP_UTIL_ERR_HEAD_TOO_LONG = 27,
    HTTP_UTIL_ERR_PARAM_TOO_LONG = 28,
    HTTP_UTIL_ERR_URL_FORMAT = 29,
    HTTP_UTIL_ERR_UNKNOWN = 30 /* message row only: never returned */
};

/* Messages indexed by result code, 0 to 30; rows 11 and 25 are the same
 * text. Index it directly only with a code from 0 to 30. */
HTTP_UTIL_API extern const char *const http_util_err_str[HTTP_UTIL_ERR_UNKNOWN + 1];

/* The message of any code; every code outside 0..29 gives "Unknown error".
 * Never returns NULL. */
HTTP_UTIL_API const char *http_util_strerr(int code);

/* ------------------------------------------------------------------------
 * Options, debug switch and logging
 * ---------------------------------------------------------------------- */
typedef struct http_opt {
    int32_t ntry;             /* default retries of the calls without ntry (5) */
    int32_t spare1;           /* stored, never read (5) */
    int32_t spare2;           /* stored, never read (5) */
    int32_t spare3;           /* stored, never read (5) */
    int32_t wait;             /* seconds between two attempts; 0 = none (30) */
    uint8_t random_wait;      /* non-zero: first pause drawn around wait (0) */
    uint8_t timestamp_check;  /* non-zero: drop a partial file the server changed (1) */
    uint8_t debug;            /* non-zero: copy every log record to the system log (0) */
} http_opt;

/* Process-wide options; initially {5,5,5,5,30,0,1,0}. A transfer reads
 * them as it goes, not once at its start: ntry when a call begins, wait and
 * random_wait at each pause, timestamp_check at each resume, debug at each
 * log record. They are not locked: set them (and g_http_util_zlog_level)
 * before transfers start, never while one runs on another thread. */
HTTP_UTIL_API extern http_opt g_http_opt;
/* Platform-log threshold: records reach the platform log while it is > 4 (5). */
HTTP_UTIL_API extern uint32_t g_http_util_zlog_level;
/* Platform-log category, set once by http_util_init() and only then
 * visible to other threads; NULL: no platform records. */
HTTP_UTIL_API extern void *g_http_util_zlog_category;

HTTP_UTIL_API void http_open_debug(void);
HTTP_UTIL_API void http_close_debug(void);
/* Copies the whole record over g_http_opt, the debug switch included. */
HTTP_UTIL_API void http_set_options(const http_opt *opt);
/* Sets up the platform log once per process, however many threads call it
 * at once: one runs the set-up, the others wait until it is done. Every
 * entry point calls it; a failed set-up is not retried. */
HTTP_UTIL_API void http_util_init(void);

/* ------------------------------------------------------------------------
 * Per-call transfer parameters. Zero every byte before filling it in.
 * ---------------------------------------------------------------------- */
typedef struct http_util_param {
    int32_t vrf;            /* > 0: open the socket in this VRF */
    char post_file[256];    /* non-empty: POST this file instead of a GET */
    int32_t max_redirect;   /* redirections followed by a download */
    int32_t ntry;           /* retries after the first attempt */
    int32_t show_progress;  /* 1: terminal display and Ctrl+C */
    uint32_t src_ip;        /* source IPv4 address, network byte order; 0 = none */
} http_util_param;

/* TLV block element types (type and length are native 32-bit words). */
enum {
    HTTP_UTIL_TLV_END = 0,
    HTTP_UTIL_TLV_SRC_IP = 1 /* 4 bytes: IPv4 address in network byte order */
};

/* ------------------------------------------------------------------------
 * Parsed response head and transfer handle
 * ---------------------------------------------------------------------- */
typedef struct http_rsp {
    int32_t status;          /* three-digit status code */
    int32_t content_len;     /* Content-Length; -1 = none */
    uint8_t keep_alive;      /* Connection: keep-alive */
    uint8_t accept_ranges;   /* Accept-Ranges: bytes */
    uint8_t chunked;         /* Transfer-Encoding: chunked */
    char new_local[256];     /* Location */
    int32_t range_start;     /* Content-Range first position; 0 = none */
    int32_t range_end;       /* Content-Range last position; 0 = none */
    int32_t file_len;        /* Content-Range complete length; -1 for "*" */
    char last_modified[32];  /* Last-Modified text */
    int32_t mtime;           /* Last-Modified as Unix time; -1 = none */
} http_rsp;

#define HTTP_UTIL_SEND_BUF_SIZE 1024
#define HTTP_UTIL_WORK_BUF_SIZE 1024
#define HTTP_UTIL_FLAG_BUFFERED 1u

/* One transfer's handle: made by http_create_util(), released by
 * http_free_util(), which also closes an open socket. */
typedef struct http_util {
    int32_t socket;                          /* -1 = not connected */
    char send_buf[HTTP_UTIL_SEND_BUF_SIZE];  /* request bytes not yet written */
    int32_t send_len;                        /* bytes held in send_buf */
    uint32_t flags;                          /* HTTP_UTIL_FLAG_BUFFERED */
    int32_t timeout;                         /* seconds, for the socket writes */
    int32_t last_err;                        /* 0, or -1 after a failed write */
    char work_buf[HTTP_UTIL_WORK_BUF_SIZE];  /* scratch for request lines */
    http_rsp rsp;                            /* the latest response head */
} http_util;

/* NULL when memory is short. */
HTTP_UTIL_API http_util *http_create_util(void);
/* NULL does nothing. */
HTTP_UTIL_API void http_free_util(http_util *util);
/* A value from 0 to n-1 (n must not be 0); not for cryptographic use. */
HTTP_UTIL_API uint32_t random_number(uint32_t n);

/* ------------------------------------------------------------------------
 * Progress
 * ---------------------------------------------------------------------- */
enum {
    HTTP_UTIL_PROGRESS_BEGIN = 0, /* a transfer begins (count 0) */
    HTTP_UTIL_PROGRESS_HEAD = 1,  /* response head bytes, 0 after a timed-out wait */
    HTTP_UTIL_PROGRESS_SIZE = 2,  /* expected total size */
    HTTP_UTIL_PROGRESS_BODY = 3,  /* body bytes stored, 0 after a timed-out wait */
    HTTP_UTIL_PROGRESS_SEND = 4,  /* upload bytes sent, 0 after a timed-out wait */
    HTTP_UTIL_PROGRESS_END = 5    /* the transfer is over (count 0) */
};

/* The application's progress record, owned by the application; the library
 * only updates done and total during a download call. */
typedef struct http_progress {
    uintptr_t priv[2];  /* the caller's; never touched by the library */
    uint32_t done;      /* bytes of the file counted so far */
    uint32_t total;     /* expected size of the file */
    uintptr_t priv2;    /* the caller's; never touched by the library */
    /* After every body block (count = its bytes; 0 after a timed-out wait);
     * non-zero cancels the transfer. May be NULL. */
    int (*on_progress)(struct http_progress *progress, uint32_t count);
    /* When set, body blocks go here instead of the local file; a negative
     * result fails the transfer. May be NULL. */
    int (*on_data)(struct http_progress *progress, const void *data, uint32_t len);
} http_progress;

/* Per-transfer reference handed to the progress function, the head parser
 * and the body readers; the driver keeps it in its own frame. */
typedef struct http_progress_ref {
    http_progress *progress;  /* the caller's record, or NULL */
    int32_t start;            /* bytes already in the local file; -1 for a POST */
    char *local_file;         /* the driver's copy of the local path */
    int32_t local_mtime;      /* modification time of the partial file, or -1 */
} http_progress_ref;

/* ------------------------------------------------------------------------
 * URL record: made by http_create_url_param(), released with free().
 * ---------------------------------------------------------------------- */
typedef struct http_url_param {
    const char *url;                 /* the caller's text, not copied */
    char host[256];                  /* name, IPv4 or IPv6 text (no brackets) */
    int32_t port;                    /* 80 when the URL gives none */
    char filename[256];              /* last path segment; "index.html" if none */
    char path[256];                  /* request path with query; "/" if none */
    uint8_t is_mgmt;                 /* through the management port */
    uint8_t is_post;                 /* param.post_file is not empty */
    uint8_t multipart;               /* set by the upload calls */
    struct sockaddr_storage ip_addr; /* the server, port in network byte order */
    char mgmt_name[16];              /* management interface; empty = none */
    http_util_param param;           /* copy of the caller's parameters */
    int32_t last_tick[2];            /* progress display: seconds, nanoseconds */
} http_url_param;

/* ---- connection layer ---- */

/* The URL record of an http:// URL (scheme compared without case): host,
 * port (80 by default), path, file name and the server address, resolved
 * through the device resolver (with is_mgmt) unless the host is an address
 * literal; param is copied, mgmt_name (may be NULL) cut to 15 characters.
 * Release it with free(). NULL on failure with *err set to
 * HTTP_UTIL_ERR_PARAM, _NOT_HTTP, _NOMEM, _URL_FORMAT or _RESOLVE; *err is
 * not written on success. A host (or bracketed IPv6 address) of 256
 * characters or more is refused with HTTP_UTIL_ERR_URL_FORMAT, never cut.
 * A URL holding a byte below 0x20 or 0x7F is refused with
 * HTTP_UTIL_ERR_URL_FORMAT (and logged) before anything is resolved: such
 * a byte would go into the request line, where a CR ends the line for some
 * servers and proxies and lets a URL smuggle in a header or a request.
 * A space stays in path and filename as given; the request lines send it
 * as %20, so that a file named with a space can be fetched.
 * The record keeps the url pointer: the text must outlive it. */
HTTP_UTIL_API http_url_param *http_create_url_param(const char *url, int *err,
                                                    const http_util_param *param,
                                                    uint32_t is_mgmt, const char *mgmt_name);

/* Reads a TLV block (ended by an element of type 0; NULL = empty) into
 * param: HTTP_UTIL_OK, or HTTP_UTIL_ERR_PARAM for an unknown type or a wrong
 * length, with the elements before it already stored. The last of several
 * elements of one type wins. */
HTTP_UTIL_API int http_util_parse_tlv(const void *tlv, http_util_param *param);

/* The library's writes to a socket (these two, http_post_header, http_flush
 * and the upload's) never raise SIGPIPE, whose default action would kill
 * the host program when a server closes early: they use send() with
 * MSG_NOSIGNAL and fail with EPIPE instead, and an upload then returns its
 * result code. No signal handler is installed and the signal mask is left
 * alone. A descriptor that is not a socket is written with write(). */
/* Writes all bytes, waiting up to five times 1 s while the socket is full.
 * 0 when everything was written (also for count 0), else -1 with errno.
 * timeout is accepted for the interface and not used. */
HTTP_UTIL_API int http_util_fd_write(int fd, const void *buf, int count, int timeout);
/* One write after waiting up to seconds for room: bytes written, or -1
 * (errno ETIMEDOUT after the wait ran out). May write fewer than count. */
HTTP_UTIL_API int http_util_fd_write_nonblock(int fd, const void *buf, unsigned count,
                                              int seconds);
/* One read after waiting up to seconds (<= 0: 5) for data: bytes read,
 * 0 when the peer closed, or -1 (errno ETIMEDOUT after the wait ran out). */
HTTP_UTIL_API int http_util_fd_read(int fd, void *buf, unsigned max, int seconds);
/* The address as text for log records ("127.0.0.1 80"), in a text area of
 * the calling thread: valid until the same thread calls again, never
 * overwritten by a call on another thread. */
HTTP_UTIL_API const char *http_sock_ntop(const struct sockaddr *sa, int salen);

/* A TCP socket connected to addr (blocking connect), placed in a VRF (vrf
 * > 0; else with is_mgmt the VRF of the interface mgmt_name or of the
 * management port) and bound to the IPv4 source src_ip (network order, 0 =
 * none; IPv4 servers only); non-blocking when nonblock is non-zero.
 * The descriptor, or -1 with nothing left open (the reason is logged). */
HTTP_UTIL_API int http_create_socket(const struct sockaddr *addr, int addrlen, int nonblock,
                                     int is_mgmt, uint32_t src_ip, const char *mgmt_name,
                                     int vrf);

/* Writes one head line through the handle's send buffer: "name: value"
 * CR LF; name alone and CR LF when value is NULL; the empty line when name
 * is NULL. LF characters in name and value are dropped. 0, or -1 when a
 * socket write failed. */
HTTP_UTIL_API int http_post_header(http_util *util, const char *name, const char *value);
/* Writes what the send buffer holds: 0 (also when it was empty, without a
 * system call), or -1 when the write failed; the bytes are dropped then. */
HTTP_UTIL_API int http_flush(http_util *util);

/* ---- response handling ---- */

/* Takes the response head off the socket up to and including its empty
 * line (lines may end in CR LF or LF alone); body bytes stay in the socket.
 * Returns a malloc'd C string the caller frees ("" when the reply does not
 * begin with "HTTP": nothing is consumed), or NULL with *err set to a
 * result code; *err is not written on success. url is only handed to
 * http_change_progess (may be NULL). Interim 1xx heads (100 Continue, 103
 * Early Hints...), which a server may send before the final head and a
 * client must pass over, are taken off and skipped: the final head is
 * returned, within the same 30 seconds for all, each head within 4095
 * bytes. */
HTTP_UTIL_API char *http_read_http_response_head(int fd, http_url_param *url, int *err);
/* Copies the line before the first LF of text, without the CR before that
 * LF if there is one, into dst (size bytes) and returns the position after
 * the LF: many servers end their lines in LF alone, and HTTP lets a client
 * read them so. NULL when there is no LF or the line has size characters
 * or more. */
HTTP_UTIL_API const char *http_getline(const char *text, char *dst, int size);
/* Status code of a status line (without CR LF) into rsp->status: 0, or -1
 * when the line is not a status line. */
HTTP_UTIL_API int http_parse_resp_status(http_rsp *rsp, const char *line);
/* Parses a whole head into util->rsp and classifies it: HTTP_UTIL_OK (read
 * the body), HTTP_UTIL_ERR_REDIRECT (Location in rsp.new_local) or a failure
 * code. ref->start is the offset the body was asked from. Lines end in CR
 * LF or LF alone. A header line of 512 characters or more is passed over
 * when its field is not one that http_parse_rsp_head reads (a long
 * Set-Cookie or Content-Security-Policy means nothing here); one that is
 * gives HTTP_UTIL_ERR_RSP_FORMAT. A 416 whose Content-Range has a star for
 * the range and N for the complete length (what a server answers when
 * nothing is left to send) gives HTTP_UTIL_ALREADY_DONE when N equals a
 * ref->start above 0 (the file, asked for from its end, is already whole)
 * and HTTP_UTIL_NEED_RETRY when N is smaller (what is held is no prefix of
 * the server's file); any other 416 gives HTTP_UTIL_ERR_RANGE. */
HTTP_UTIL_API int http_parse_http_response_head(http_util *util, http_progress_ref *ref,
                                                const char *head);
/* One header field into rsp: 0, or HTTP_UTIL_ERR_RSP_FORMAT for a
 * Content-Range it cannot read or a Content-Length that is not a plain
 * decimal from 0 to 2^31 - 1 (blanks around it allowed): a length read
 * leniently ("zzz" as 0) would make a cut file look whole. Unknown names
 * are ignored. */
HTTP_UTIL_API int http_parse_rsp_head(http_rsp *rsp, http_progress_ref *ref, const char *name,
                                      const char *value);
/* 0 when text matches pattern: ASCII case ignored, "-" in the pattern
 * matches any character, "*" a run; the text ends at a double quote. */
HTTP_UTIL_API int http_tag_cmp(const char *text, const char *pattern);
/* A Content-Range value such as "bytes 0-99/1000": 1 when read, 0 otherwise.
 * A length of "*" gives -1; an unsatisfiable range ("*" before the "/")
 * stores the length only. */
HTTP_UTIL_API int parse_content_range(const char *value, int32_t *first, int32_t *last,
                                      int32_t *length);
/* An HTTP date as Unix time (read as UTC), or -1: the IMF-fixdate of RFC
 * 1123 ("Sun, 06 Nov 1994 08:49:37 GMT"), the obsolete RFC 850 form
 * ("Sunday, 06-Nov-94 ..."; 69 to 99 are 1969 to 1999, 00 to 68 are 2000 to
 * 2068), asctime ("Sun Nov  6 08:49:37 1994"), and RFC 1123 with dashes
 * ("Sun, 06-Nov-1994 ..."). After it may come nothing, "GMT" or a numeric
 * offset, which is not applied. Read as leniently as strptime reads them:
 * English day and month names in any letter case, full or abbreviated, the
 * day name not checked; one-digit fields; any white space where a blank
 * is. Days and seconds past their end carry over (31 Feb is 3 Mar). Names
 * are fixed in the library and no locale is read or set, so a host thread
 * that formats dates in its own language meanwhile is not disturbed.
 * -1 also for a date that time_t cannot hold. */
HTTP_UTIL_API time_t http_atotm(const char *date);
/* Reads toread body bytes (-1: up to the close) into out (may be NULL), or
 * into ref's on_data when set, leaving out the first skip bytes; reports
 * HTTP_UTIL_PROGRESS_BODY after every block. A result code. */
HTTP_UTIL_API int http_fd_read_body(http_url_param *url, int fd, FILE *out,
                                    http_progress_ref *ref, int32_t toread, uint32_t skip);
/* The same for a chunked body, up to its zero-size chunk (the CR LF after it
 * and any trailer stay in the socket). A result code. A size line may be up
 * to 256 bytes, its line end (CR LF or LF alone) included; extensions after
 * ";" are ignored. A server or proxy may split a size line between TCP
 * segments, so one not yet ended is read on as its bytes come, without
 * spinning; the whole line must arrive within the 5 seconds that the wait
 * for its first byte has, else HTTP_UTIL_ERR_RSP_FORMAT ("wrong chunk
 * format."). A peer that closes before the size line has ended has cut the
 * connection: HTTP_UTIL_ERR_RECV_DATA, which a download retries and resumes
 * like any other cut. */
HTTP_UTIL_API int http_fd_read_body_chunked(http_url_param *url, int fd, FILE *out,
                                            http_progress_ref *ref, uint32_t skip);

/* ---- progress ---- */

/* Reports one stage (HTTP_UTIL_PROGRESS_*) of a transfer: prints on the CLI
 * user's terminal when url->param.show_progress is 1 and keeps ref's
 * progress record current. 0 = go on, -1 = cancel (Ctrl+C typed, or
 * on_progress returned non-zero). ref and url may be NULL. */
HTTP_UTIL_API int http_change_progess(uint32_t stage, http_progress_ref *ref, uint32_t count,
                                      http_url_param *url);

/* ---- upload ---- */

/* Uploads local_file to url (http:// only) as the one part, named "file1",
 * of a multipart/form-data POST. One attempt, no redirection. 0 when the
 * server answered 200; HTTP_UTIL_ERR_NOT_OK for another accepted status.
 * The Host field is formed as a download's: an IPv6 literal in brackets,
 * with the port unless it is 80 ("[::1]:8080"); without the brackets the
 * field is malformed and strict servers answer 400.
 * The size sent in Content-Length is the file's size when it was opened:
 * never more bytes than that are sent, a file that grew is cut there, and
 * a file that shrank meanwhile ends the upload with HTTP_UTIL_ERR_READ_FILE.
 * Files of 2 GiB or more are refused with HTTP_UTIL_ERR_READ_FILE. */
HTTP_UTIL_API int http_upload_file(const char *url, const char *local_file);
/* The same with parameters from a TLV block (NULL = none); a bad block is
 * refused with HTTP_UTIL_ERR_PARAM before any connection. */
HTTP_UTIL_API int http_upload_file_tlv(const char *url, const char *local_file, const void *tlv);
/* The same through the management out-of-band port. */
HTTP_UTIL_API int http_mgnt_upload_file(const char *url, const char *local_file);
/* The upload with the caller's own parameters (vrf, show_progress, src_ip);
 * param is only read. Also sets up logging (http_util_init). */
HTTP_UTIL_API int http_upload_param(const char *url, const char *local_file,
                                    const http_util_param *param, uint8_t is_mgmt,
                                    const char *mgmt_name);
/* Posts local_file to the server of a URL record (multipart when
 * url->multipart is set, else the raw bytes) and saves the answer's body to
 * save_path unless it is NULL or empty. Reports the begin and end stages. */
HTTP_UTIL_API int http_post_loop(http_url_param *url, const char *local_file,
                                 const char *save_path);
/* name, a dot and six letters or digits: a path that did not exist when it
 * was made (nothing is created). Freed by the caller; NULL for a NULL name,
 * no memory, or five names in a row already taken. */
HTTP_UTIL_API char *http_util_generate_tmpname(const char *name);

/* ---- download ---- */

/* Downloads url (an http:// URL; only its first 255 characters are used)
 * into local_file, or, when local_file is NULL, into the URL's file name in
 * the current directory. A partial local file is resumed with a Range
 * request and dropped when the server's copy changed. A local file that is
 * already whole (the server answers 416 with a Content-Range of a star and
 * the file's size) is success and left as it is, as a second run of the
 * same download should be; when that answer's Last-Modified differs from
 * the file's time (g_http_opt.timestamp_check on), the file is another
 * version of the same size. That one, and one longer than the server's
 * file, are deleted and the file fetched whole, without counting a retry.
 * Up to five redirections are followed. A Location that is not an absolute
 * URL (servers may send one) is taken relative to the URL asked for: a
 * path from "/" replaces the path, another path is joined to the asked
 * path's directory, "." and ".." segments are worked out, "?q" keeps the
 * path and "//host/x" keeps only the scheme; with local_file NULL the
 * resolved URL names the file. A resolved URL longer than 255 characters
 * gives HTTP_UTIL_ERR_URL_FORMAT without connecting; a Location of another
 * scheme gives HTTP_UTIL_ERR_NOT_HTTP. Failed connections and transfers
 * are retried ntry times (the calls without ntry use g_http_opt.ntry as it
 * stands at the call) with g_http_opt.wait seconds between attempts; a
 * connection cut anywhere in a chunked body, a size line included, is
 * resumed like one cut in a body of known length. The saved file gets
 * the server's Last-Modified time. Result: HTTP_UTIL_OK when the file was
 * saved, else a result code; a failed download leaves what it stored.
 * A local file of 2 GiB or more cannot be resumed (positions are 32-bit):
 * HTTP_UTIL_ERR_SAVE_FILE (errno EFBIG), the file untouched, nothing sent.
 * A NULL url or a negative ntry: HTTP_UTIL_ERR_PARAM, nothing is sent.
 * tlv (NULL or a block ended by type 0): a bad block gives
 * HTTP_UTIL_ERR_PARAM before any connection. progress (may be NULL): its
 * done and total follow the transfer and its callbacks can cancel it
 * (HTTP_UTIL_ERR_CANCELED) or take the body. The mgnt/mngt calls go through
 * the management port (the interface mgmt_name, at most 15 characters, or
 * the management VRF). */
HTTP_UTIL_API int http_download_file(const char *url, const char *local_file);
HTTP_UTIL_API int http_download_file_tlv(const char *url, const char *local_file,
                                         const void *tlv);
HTTP_UTIL_API int http_download_file_ntry(const char *url, const char *local_file, int ntry);
HTTP_UTIL_API int http_download_file_ntry_tlv(const char *url, const char *local_file, int ntry,
                                              const void *tlv);
HTTP_UTIL_API int http_download_file_progress(http_progress *progress, const char *url,
                                              const char *local_file, int ntry);
HTTP_UTIL_API int http_download_file_progress_tlv(http_progress *progress, const char *url,
                                                  const char *local_file, int ntry,
                                                  const void *tlv);
HTTP_UTIL_API int http_mgnt_download_file_progress(http_progress *progress, const char *url,
                                                   const char *local_file, int ntry);
HTTP_UTIL_API int http_mgnt_download_file_progress_byname(http_progress *progress,
                                                          const char *url, const char *local_file,
                                                          int ntry, const char *mgmt_name);
HTTP_UTIL_API int http_mgnt_download_file(const char *url, const char *local_file);
/* (sic: mngt) */
HTTP_UTIL_API int http_mngt_download_file_ntry(const char *url, const char *local_file, int ntry);

/* Sets path's modification time to mtime and its access time to now; a
 * failure is only logged. */
HTTP_UTIL_API void touch(const char *path, time_t mtime);

/* ---- copy ---- */

/* Copies between an http:// URL and a local path, each at most 255
 * characters: src a URL (any letter case) downloads to the local path dst,
 * even when dst is a URL too; else dst a URL uploads src. The download goes
 * to a temporary file beside dst that replaces dst only after a complete
 * transfer; on failure dst is untouched and the temporary file removed.
 * The replacement survives a power loss at any moment: the temporary
 * file's data is synced to storage (fsync) before it is renamed over dst,
 * and the folder holding dst is synced after the rename; a file system that
 * does not order data before a rename could otherwise leave dst empty. A
 * failed sync of the data fails the copy with HTTP_UTIL_ERR_SAVE_FILE (dst
 * untouched, the temporary file removed); a failed sync of the folder is
 * only logged, the data being in place.
 * param is used as filled (max_redirect, ntry, post_file...), except that a
 * show_progress of 0 is set to 1 in the caller's record.
 * Results: HTTP_UTIL_ERR_PARAM for a NULL argument; PARAM_TOO_LONG for 256
 * characters or more (checked first); NOT_SUPPORTED when neither side is a
 * URL; URL_NOT_ASCII, with no connection, for a URL byte of 128 or more;
 * NOMEM when a working copy cannot be allocated; SAVE_FILE when no free
 * temporary name was found or the rename failed; else the transfer's code. */
HTTP_UTIL_API int http_util_copy(const char *src, const char *dst, http_util_param *param);

#ifdef __cplusplus
}
#endif

/* Layout checks: host programs rely on these offsets and sizes. */
#if defined(__cplusplus)
#define HTTP_UTIL_STATIC_ASSERT(c, m) static_assert(c, m)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define HTTP_UTIL_STATIC_ASSERT(c, m) _Static_assert(c, m)
#else /* C99: a negative array size stops the build */
#define HTTP_UTIL_CAT2_(a, b) a##b
#define HTTP_UTIL_CAT_(a, b) HTTP_UTIL_CAT2_(a, b)
#define HTTP_UTIL_STATIC_ASSERT(c, m) \
    typedef char HTTP_UTIL_CAT_(http_util_layout_check_, __LINE__)[(c) ? 1 : -1]
#endif
HTTP_UTIL_STATIC_ASSERT(offsetof(http_opt, wait) == 16, "http_opt: five words first");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_opt, random_wait) == 20, "http_opt: bytes after words");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_opt, debug) == 22, "http_opt: debug is the last byte");
HTTP_UTIL_STATIC_ASSERT(sizeof(http_opt) == 24, "http_opt size");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_util_param, post_file) == 4, "param: post_file");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_util_param, max_redirect) == 260, "param: max_redirect");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_util_param, src_ip) == 272, "param: src_ip");
HTTP_UTIL_STATIC_ASSERT(sizeof(http_util_param) == 276, "param: no gaps");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_rsp, new_local) == 11, "rsp: new_local");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_rsp, range_start) == 268, "rsp: range_start");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_rsp, last_modified) == 280, "rsp: last_modified");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_rsp, mtime) == 312, "rsp: mtime");
HTTP_UTIL_STATIC_ASSERT(sizeof(http_rsp) == 316, "rsp size");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_util, send_len) == 1028, "util: send_len");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_util, work_buf) == 1044, "util: work_buf");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_util, rsp) == 2068, "util: rsp");
HTTP_UTIL_STATIC_ASSERT(sizeof(http_util) == 2384, "util size");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_progress, done) == 2 * sizeof(uintptr_t), "progress: done");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_progress, priv2) == 2 * sizeof(uintptr_t) + 8, "progress: caller word");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_progress_ref, start) == sizeof(void *), "progress_ref: start after the record pointer");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_url_param, host) == sizeof(void *), "url: host after the url pointer");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_url_param, is_mgmt) == sizeof(void *) + 772, "url: flags after path");
HTTP_UTIL_STATIC_ASSERT(sizeof(struct sockaddr_storage) == 128, "url: 128-byte address area");
HTTP_UTIL_STATIC_ASSERT(offsetof(http_url_param, param) == offsetof(http_url_param, mgmt_name) + 16, "url: param after mgmt_name");
#undef HTTP_UTIL_STATIC_ASSERT

#endif /* HTTP_UTIL_H */

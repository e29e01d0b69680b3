/**
 * @file http.h
 * @brief HTTP requests whose response goes into memory or into a file, and the splitting of URLs.
 *
 * A request is sent in plain text whatever the URL says: "https" selects port 443 and no encryption. It is a POST if
 * there is something to upload, else a GET. Redirects are followed, up to 1,000 of them, and for no longer than ten times
 * the time-out. Only a response with the code 200 is a success.
 *
 * All requests return `TRUE`, or `FALSE` with an error text: `EINVAL` (22) for bad arguments, such as a URL or a header
 * line with a line break in it; `ENOMEM` (12) for parts of the URL that are too long; `ENOSYS` (38) for an unknown protocol
 * without a port; `ETIME` (62) for a server that does not answer in time; `EBADMSG` (74) for a response that is no success,
 * or makes no sense, or lacks what is needed; otherwise that of the socket layer, of the file, or of memory. What exactly
 * was wrong is told in the library's own log, "general.log", if that is switched on.
 *
 * Time-outs are in seconds, for the connection and again for each wait for the server; 0 is no limit. A server that takes
 * no data while the request is sent is waited for without limit.
 *
 * With a file as the target, a request that fails deletes it. An empty body leaves it as it was. With a directory, the
 * file has the name that the server gives ("Content-Disposition"), which must be one of at most 299 bytes without "/" and
 * control bytes; the file of a transfer that fails stays there, as far as it came.
 */
#ifndef ZKQ_GENERAL_HTTP_H
#define ZKQ_GENERAL_HTTP_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A URL in parts, the port still with the server. */
typedef struct {
    char Protocol[100];   /**< as it was written, or "HTTP" */
    char ServerName[300]; /**< between the protocol and the first "/" */
    char Object[300];     /**< from there to the end, or "/" */
} NETWORK_URL;

/** A URL in parts, with its port. */
typedef struct {
    NETWORK_URL n_url; /**< the texts; the server without port and brackets */
    long Port;         /**< as it was written, or that of the protocol */
} NETWORK_URL_NEW;

/** A URL in parts of any length, released with Network_FreeURLEx(). */
typedef struct {
    char* Protocol;   /**< as it was written, or "HTTP" */
    char* ServerName; /**< without port and brackets */
    char* Object;     /**< from the first "/" behind the server to the end, or "/" */
    long Port;        /**< as it was written, or that of the protocol */
} NETWORK_URL_EX;

/**
 * @brief Sends a request and stores the response in a file. The time-out is 20 seconds.
 * @param URL         "http://host:port/path"; protocol, port and path may be missing. An IPv6 address stands in brackets.
 * @param FormData    Body of a POST; null for a GET.
 * @param ResultFile  Path of the file; null drops the body.
 * @return `FALSE` with an error of those above.
 */
ZKQ_API BOOL Network_SendHttpRequest(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ResultFile);

/**
 * @brief Sends a request and stores the response in a file. The time-out is 20 seconds.
 * @param URL         As for Network_SendHttpRequest().
 * @param FormData    Body of a POST; null for a GET.
 * @param ResultFile  Path of the file, or of the directory; null drops the body.
 * @param Proxy       Not used.
 * @param bPath       1 if `ResultFile` is a directory and the server names the file, else 0.
 * @return `FALSE` with an error of those above.
 */
ZKQ_API BOOL Network_SendHttpRequestEx(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ResultFile, LPCTSTR Proxy, int bPath);

/**
 * @brief Sends a request and stores the response in a file. The time-out is 20 seconds.
 * @param URL         As for Network_SendHttpRequest().
 * @param FormData    Body of a POST; null for a GET.
 * @param ResultFile  Path of the file, or of the directory; null drops the body.
 * @param Proxy       Not used.
 * @param bPath       1 if `ResultFile` is a directory and the server names the file, else 0.
 * @param FileName    With `bPath`, receives the server's name for the file; may be null.
 * @param Length      Room in `FileName` in bytes.
 * @return `FALSE` with an error of those above; `ENOMEM` also for a name that does not fit into `FileName`.
 */
ZKQ_API BOOL Network_SendHttpRequestEx2(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ResultFile, LPCTSTR Proxy, int bPath,
                                        char* FileName, int Length);

/**
 * @brief Sends a request and stores the response in a file. The time-out is 20 seconds.
 * @param URL          As for Network_SendHttpRequest().
 * @param FormData     Body of a POST; null for a GET.
 * @param ContentType  A whole header line, such as "Content-Type: text/xml"; null for none, or, in a POST, for that of a
 *                     form ("application/x-www-form-urlencoded").
 * @param ResultFile   Path of the file, or of the directory; null drops the body.
 * @param Proxy        Not used.
 * @param bPath        1 if `ResultFile` is a directory and the server names the file, else 0.
 * @param FileName     With `bPath`, receives the server's name for the file; may be null.
 * @param Length       Room in `FileName` in bytes.
 * @return `FALSE` with an error of those above; `ENOMEM` also for a name that does not fit into `FileName`.
 */
ZKQ_API BOOL Network_SendHttpRequestEx3(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ContentType, LPCTSTR ResultFile,
                                        LPCTSTR Proxy, int bPath, char* FileName, int Length);

/**
 * @brief Sends a request and gives the response in memory or in a file. The time-out is 20 seconds.
 * @param URL               As for Network_SendHttpRequest().
 * @param FormData          Body of a POST; null for a GET.
 * @param ContentType       A whole header line, or null, as for Network_SendHttpRequestEx3().
 * @param ResultFile        Path of the file, or of the directory; null gives the body in memory.
 * @param ResultData        Without a file, receives the body and a NUL behind it, released with NetWork_FreeBuffer(); null
 *                          for an empty body and on failure. May be null.
 * @param ResultDataLength  Without a file, receives the length of the body; may be null.
 * @param Proxy             Not used.
 * @param bPath             1 if `ResultFile` is a directory and the server names the file, else 0.
 * @param FileName          With `bPath`, receives the server's name for the file; may be null.
 * @param Length            Room in `FileName` in bytes.
 * @return `FALSE` with an error of those above; `ENOMEM` also for a name that does not fit into `FileName`.
 */
ZKQ_API BOOL Network_SendHttpRequestEx4(LPCTSTR URL, LPCTSTR FormData, LPCTSTR ContentType, const char* ResultFile,
                                        char** ResultData, int* ResultDataLength, LPCTSTR Proxy, int bPath,
                                        char* FileName, int Length);

/**
 * @brief Sends a request and gives the response as a text in memory.
 * @param URL          As for Network_SendHttpRequest().
 * @param UploadData   Body of a POST; null for a GET.
 * @param ContentType  A whole header line, or null, as for Network_SendHttpRequestEx3().
 * @param ResultData   Receives the body and a NUL behind it, released with NetWork_FreeBuffer(); null for an empty body
 *                     and on failure. May be null.
 * @param TimeOut      Seconds.
 * @return `FALSE` with an error of those above.
 */
ZKQ_API BOOL Network_HttpSendReceive(LPCTSTR URL, LPCTSTR UploadData, LPCTSTR ContentType, char** ResultData,
                                     int TimeOut);

/**
 * @brief Sends a request and gives the response in memory or in a file.
 * @param URL               As for Network_SendHttpRequest().
 * @param UploadData        Body of a POST; null for a GET.
 * @param ContentType       A whole header line, or null, as for Network_SendHttpRequestEx3().
 * @param ResultFile        Path of the file, or of the directory; null gives the body in memory.
 * @param ResultData        As for Network_SendHttpRequestEx4().
 * @param ResultDataLength  As for Network_SendHttpRequestEx4().
 * @param TimeOut           Seconds.
 * @param bPath             1 if `ResultFile` is a directory and the server names the file, else 0.
 * @return `FALSE` with an error of those above.
 */
ZKQ_API BOOL Network_HttpSendReceiveEx(LPCTSTR URL, LPCTSTR UploadData, LPCTSTR ContentType, const char* ResultFile,
                                       char** ResultData, int* ResultDataLength, int TimeOut, int bPath);

/**
 * @brief Sends a request and gives the response in memory or in a file.
 * @param URL               As for Network_SendHttpRequest().
 * @param UploadData        Body of a POST; null for a GET.
 * @param ContentType       A whole header line, or null, as for Network_SendHttpRequestEx3().
 * @param ResultFile        Path of the file, or of the directory; null gives the body in memory.
 * @param ResultData        As for Network_SendHttpRequestEx4().
 * @param ResultDataLength  As for Network_SendHttpRequestEx4().
 * @param TimeOut           Seconds.
 * @param bPath             1 if `ResultFile` is a directory and the server names the file, else 0.
 * @param FileName          With `bPath`, receives the server's name for the file; may be null.
 * @param Length            Room in `FileName` in bytes.
 * @return `FALSE` with an error of those above; `ENOMEM` also for a name that does not fit into `FileName`.
 */
ZKQ_API BOOL Network_HttpSendReceiveEx2(LPCTSTR URL, LPCTSTR UploadData, LPCTSTR ContentType, const char* ResultFile,
                                        char** ResultData, int* ResultDataLength, int TimeOut, int bPath,
                                        char* FileName, int Length);

/**
 * @brief Releases a response in memory.
 * @param ResultData  The response; null is ignored.
 */
ZKQ_API void NetWork_FreeBuffer(char* ResultData);

/**
 * @brief Splits a URL, without looking for a port.
 * @param URL   The URL; blanks before it are skipped.
 * @param nurl  Receives the parts; not changed by a failure.
 * @return `FALSE` with `EINVAL` for null or empty arguments, or with `ENOMEM` if a part does not fit.
 */
ZKQ_API BOOL Network_SplideURL(LPCTSTR URL, NETWORK_URL* nurl);

/**
 * @brief Splits a URL into parts of any length.
 *
 * The protocol is what stands before the first "://", wherever that is. Without a port, or with port 0, the protocol tells
 * it: 80 for "http", 21 for "ftp", 443 for "https", in any case of letters.
 *
 * @param URL      The URL; blanks before it are skipped.
 * @param New_URL  Receives the parts, released with Network_FreeURLEx(); empty after a failure.
 * @return `FALSE` with `EINVAL` for null or empty arguments, `ENOSYS` for another protocol without a port, or `ENOMEM`.
 */
ZKQ_API BOOL Network_SplideURL_Ex(LPCTSTR URL, NETWORK_URL_EX* New_URL);

/**
 * @brief Splits a URL, with its port.
 * @param URL      The URL; blanks before it are skipped.
 * @param new_url  Receives the parts; not changed by a failure.
 * @return `FALSE` as Network_SplideURL_Ex(), and with `ENOMEM` if a part does not fit.
 */
ZKQ_API BOOL Network_SplideURL_New(LPCTSTR URL, NETWORK_URL_NEW* new_url);

/**
 * @brief Releases the parts of a URL.
 * @param URL  What Network_SplideURL_Ex() has filled, now empty; null is ignored.
 */
ZKQ_API void Network_FreeURLEx(NETWORK_URL_EX* URL);

/**
 * @brief Finds the value of a key in a text such as "a=1;b=2".
 *
 * The text is split at ";" and each piece at "=", where several of them count as one. Blanks belong to keys and values, so
 * "b" is not found in "a=1; b=2". A piece with more or less than two parts has no value.
 *
 * @param src    The text.
 * @param key    The key.
 * @param value  Receives the value, which is shorter than `src`; not changed if there is none.
 */
ZKQ_API void GetKeyValue_Http(const char* src, const char* key, char* value);

#ifdef __cplusplus
}
#endif

#endif

// record.h - the requests that the cloud host received: a folder of files, 000001 and on.
//
// Each file holds one request byte by byte: its head, an empty line, its body. A file is there as a
// whole, and before the client has an answer.
#ifndef ZORV_SIM_CLOUD_RECORD_H
#define ZORV_SIM_CLOUD_RECORD_H

#include <string>
#include <utility>
#include <vector>

namespace cloud {

struct Request {
    std::string method{};
    std::string host{}; // without the port
    std::string path{}; // with its query
    std::vector<std::pair<std::string, std::string>> headers{};
    std::string body{};

    // The value of the first header of that name, in any case; "" when there is none.
    std::string header(const std::string &name) const;
};

// Reads a head: the request line and headers, each with its "\r\n". Throws std::runtime_error.
Request parse_head(const std::string &head);

// Adds a request as the file of that number.
void write_record(const std::string &folder, int number, const std::string &request);

// Reads the requests of that number and above.
std::vector<Request> read_record(const std::string &folder, int from);

} // namespace cloud

#endif

#include "cloud/record.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <strings.h>

namespace fs = std::filesystem;

namespace cloud {
namespace {

fs::path record_path(const std::string &folder, int number)
{
    char name[16];
    snprintf(name, sizeof name, "%06d", number);
    return fs::path(folder) / name;
}

} // namespace

std::string Request::header(const std::string &name) const
{
    for (const auto &[key, value] : headers)
        if (strcasecmp(key.c_str(), name.c_str()) == 0)
            return value;
    return "";
}

Request parse_head(const std::string &head)
{
    Request request;
    std::istringstream lines(head);
    std::string line;
    lines >> request.method >> request.path;
    std::getline(lines, line);
    while (std::getline(lines, line) && line != "\r") {
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
            throw std::runtime_error("not a header: " + line);
        const size_t value = line.find_first_not_of(' ', colon + 1);
        request.headers.emplace_back(line.substr(0, colon),
                                     line.substr(value, line.size() - value - 1));
    }
    const std::string host = request.header("Host");
    request.host = host.substr(0, host.find(':'));
    return request;
}

void write_record(const std::string &folder, int number, const std::string &request)
{
    const fs::path path = record_path(folder, number);
    const fs::path draft = path.string() + ".part";
    std::ofstream(draft, std::ios::binary) << request;
    fs::rename(draft, path);
}

std::vector<Request> read_record(const std::string &folder, int from)
{
    std::vector<Request> requests;
    for (int number = from; fs::exists(record_path(folder, number)); ++number) {
        std::ifstream file(record_path(folder, number), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const size_t end = text.find("\r\n\r\n") + 4;
        requests.push_back(parse_head(text.substr(0, end)));
        requests.back().body = text.substr(end);
    }
    return requests;
}

} // namespace cloud

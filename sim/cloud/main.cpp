// zorv-cloud - the cloud host as a program: zorv-cloud SCRIPT FOLDER [ADDRESS [PORT]]
//
// FOLDER gets ca.pem, the authority to trust; hosts, lines for /etc/hosts; and received/, the
// requests. It may hold outages. When the host can be connected to it says "ready" on standard
// output. script.h has the form of the script and of the outages.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "cloud/service.h"

namespace {

std::string read_file(const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream file(path);
    if (!(file << text << std::flush))
        throw std::runtime_error("cannot write " + path);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3 || argc > 5) {
        fprintf(stderr, "usage: zorv-cloud SCRIPT FOLDER [ADDRESS [PORT]]\n");
        return 2;
    }
    try {
        const std::string folder = argv[2];
        cloud::Place place = {.record = folder + "/received", .outages = folder + "/outages"};
        if (argc > 3)
            place.address = argv[3];
        if (argc > 4)
            place.port = static_cast<uint16_t>(std::stoul(argv[4]));
        cloud::Service service(cloud::parse_script(read_file(argv[1])), place);
        write_file(folder + "/ca.pem", service.trusted_authority());
        write_file(folder + "/hosts", service.hosts());
        puts("ready");
        fflush(stdout);
        service.run();
    } catch (const std::exception &error) {
        fprintf(stderr, "zorv-cloud: %s\n", error.what());
        return 1;
    }
}

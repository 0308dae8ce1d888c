// A peer on the service bus for tests: serves one method, answers each call with the same text and writes
// down what it was asked, one line "METHOD REQUEST" a call.
#include <unistd.h>
#include <vservice.h>

#include <fstream>
#include <iostream>
#include <string>

namespace {

std::string method_name;
std::string journal_path;
std::string reply;

int answer(vs_io* io, int socket) {
    char* text = nullptr;
    const std::size_t length = vs_io_read(io, &text);
    std::string request(text == nullptr ? "" : text, length);
    request.erase(request.find_last_not_of('\n') + 1);
    std::ofstream(journal_path, std::ios::app) << method_name + " " + request + "\n";
    vs_io_realloc(io, 0);
    vs_io_write(io, reply.data(), reply.size());
    const int result = vs_reply(io);
    vs_io_free(io);
    close(socket);
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: scripted_peer SERVICE METHOD JOURNAL REPLY\n";
        return 2;
    }
    method_name = argv[2];
    journal_path = argv[3];
    reply = argv[4];
    vs_server* server = vs_server_create(argv[1]);
    if (server == nullptr || vs_server_add_method(server, argv[2], answer) != 0) {
        std::cerr << "scripted_peer: cannot serve " << argv[1] << "." << argv[2] << "\n";
        return 1;
    }
    return vs_server_run(server) == 0 ? 0 : 1;
}

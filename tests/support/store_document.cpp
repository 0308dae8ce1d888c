// Writes one document through the library's store, which works alone between two marks that a tracer finds in
// the list of system calls.
#include <json/json.h>
#include <networkinterface.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: store_document PATH TEXT\n";
        return 2;
    }
    INITIALIZE_LOG("MAIN");
    Json::Value document;
    std::istringstream(argv[2]) >> document;
    (void)access("/store-begins", F_OK);
    const int result = json_mem_to_file(argv[1], document, true);
    (void)access("/store-ends", F_OK);
    return result < 0 ? 1 : 0;
}

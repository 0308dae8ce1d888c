// A service of the bus that answers fixed texts, and the journal of all calls to such services.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>
#include <vservice.h>

#include <array>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace fixture {

using Calls = std::vector<std::string>;

/// Serves for the life of the object. An empty answer is an empty reply.
class FakeService {
public:
    FakeService(const std::string& name, const std::map<std::string, std::string>& answers)
        : server_(vs_server_create(name.c_str())) {
        EXPECT_NE(server_, nullptr) << name;
        (void)take_calls();  // those of earlier services
        for (const auto& [method, text] : answers) {
            std::size_t slot = 0;
            while (!slots.at(slot).first.empty()) {
                ++slot;
            }
            slots.at(slot) = {name + "." + method, text};
            mine_.push_back(slot);
            EXPECT_EQ(vs_server_add_method(server_, method.c_str(), kMethods.at(slot)), 0);
        }
        thread_ = std::thread([this] { vs_server_run(server_); });
    }
    ~FakeService() {
        vs_server_stop(server_);
        thread_.join();
        vs_server_free(server_);
        for (const std::size_t slot : mine_) {
            slots.at(slot) = {};
        }
    }

    /// All calls so far as "service.method request", and forgets them. Commands that stand_in.h recorded and
    /// what was noted lie between them as they came. With `begins`, what follows these words in the calls
    /// that begin so.
    static Calls take_calls(const Calls& begins = {""}) {
        const std::lock_guard guard(mutex);
        take_commands();
        Calls calls;
        for (const std::string& call : std::exchange(journal, {})) {
            for (const std::string& begin : begins) {
                call.rfind(begin, 0) == 0 ? calls.push_back(call.substr(begin.size())) : void();
            }
        }
        return calls;
    }
    static std::string take_text(const Calls& begins = {""}, const std::string& end = "\n") {
        std::string text;
        for (const std::string& line : take_calls(begins)) {
            text += line + end;
        }
        return text;
    }
    static void note(const std::string& call) {
        const std::lock_guard guard(mutex);
        take_commands();
        journal.push_back(call);
    }

private:
    // The bus hands a method no argument of its own, so each method of a service has a function.
    template <std::size_t slot>
    static int serve(vs_io* io, int socket) {
        char* text = nullptr;
        const std::size_t length = vs_io_read(io, &text);
        std::string request(text == nullptr ? "" : text, length);
        request.erase(request.find_last_not_of('\n') + 1);
        const auto& [name, answer] = slots.at(slot);
        note(name + " " + request);
        vs_io_realloc(io, 0);
        vs_io_write(io, answer.data(), answer.size());
        const int result = vs_reply(io);
        vs_io_free(io);
        close(socket);
        return result;
    }
    static constexpr std::array<vs_method, 10> kMethods{serve<0>, serve<1>, serve<2>, serve<3>, serve<4>,
                                                        serve<5>, serve<6>, serve<7>, serve<8>, serve<9>};
    static void take_commands() {
        std::ifstream commands("/tmp/stand_in");
        for (std::string line; std::getline(commands, line);) {
            journal.push_back(line);
        }
        unlink("/tmp/stand_in");
    }
    inline static std::array<std::pair<std::string, std::string>, 11> slots;
    inline static Calls journal;
    inline static std::mutex mutex;

    vs_server* server_;
    std::vector<std::size_t> mine_;
    std::thread thread_;
};

}  // namespace fixture

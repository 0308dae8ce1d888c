// Two commands of the shell in turn: the median time of each, their ratio, and the peak memory of each with
// all that it waited for. Ratios of one run count.
//
// usage: bench_compare_commands ROUNDS COMMAND BARE_COMMAND
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// What one command has taken so far.
struct Taken {
    std::vector<double> milliseconds;
    long kilobytes = 0;

    double median() {
        std::sort(milliseconds.begin(), milliseconds.end());
        return milliseconds[milliseconds.size() / 2];
    }
};

void run(const std::string& command, Taken& taken) {
    const char* const words[] = {"sh", "-c", command.c_str(), nullptr};
    const Clock::time_point begun = Clock::now();
    pid_t child = 0;
    int status = 1;
    rusage used{};
    if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(words), environ) != 0 ||
        wait4(child, &status, 0, &used) < 0 || status != 0) {
        (void)fprintf(stderr, "failed: %s\n", command.c_str());
        exit(1);
    }
    taken.milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begun).count());
    taken.kilobytes = std::max(taken.kilobytes, used.ru_maxrss);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    Taken ours;
    Taken bare;
    for (int round = 0; round < atoi(argv[1]); ++round) {
        run(argv[2], ours);
        run(argv[3], bare);
    }
    const double median = ours.median();
    printf("%9.1f %9.1f %6.2f %9ld %9ld\n", median, bare.median(), median / bare.median(), ours.kilobytes,
           bare.kilobytes);
    return 0;
}

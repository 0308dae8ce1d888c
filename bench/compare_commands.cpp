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
    std::vector<double> processor;
    long kilobytes = 0;
};

double median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

double milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
}

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
    taken.processor.push_back(milliseconds(used.ru_utime) + milliseconds(used.ru_stime));
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
    for (const auto times : {&Taken::milliseconds, &Taken::processor}) {
        const double one = median(ours.*times);
        const double other = median(bare.*times);
        printf("%9.1f %9.1f %6.2f ", one, other, one / other);
    }
    printf("%9ld %9ld\n", ours.kilobytes, bare.kilobytes);
    return 0;
}

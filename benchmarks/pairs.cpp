// Runs rows of operation and floor by turns and prints them as lines of a Markdown table.
#include "benchmarks/pairs.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

namespace bench {

namespace {

constexpr std::size_t kLeastPairs = 20;
constexpr std::size_t kMostPairs = 500;
constexpr std::chrono::milliseconds kLeastTime(700); // quick rounds are repeated so long, however many were asked for
constexpr std::chrono::seconds kMostTime(20);        // slow ones end then, with the least number of pairs
constexpr int kRoundsOfPoint = 3;
constexpr double kNanosecondsOfSecond = 1e9;

// The value below which that part of the sorted values lies.
double Quantile(const std::vector<double>& sorted, double part) {
    const double place = part * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, sorted.size() - 1);
    return sorted[below] + (sorted[above] - sorted[below]) * (place - static_cast<double>(below));
}

struct Spread {
    explicit Spread(std::vector<double> values) {
        std::ranges::sort(values);
        low = Quantile(values, 0.25);
        median = Quantile(values, 0.5);
        high = Quantile(values, 0.75);
    }
    double low;
    double median;
    double high;
};

std::string Number(double value, int decimals) {
    char text[64] = {};
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

std::string TimeText(double seconds) {
    struct Unit {
        double seconds;
        const char* name;
        int decimals;
    };
    constexpr Unit kUnits[] = {{1, " s", 2}, {1e-3, " ms", 2}, {1e-6, " us", 1}};
    for (const Unit& unit : kUnits) {
        if (seconds >= unit.seconds) {
            return Number(seconds / unit.seconds, unit.decimals) + unit.name;
        }
    }
    return Number(seconds * kNanosecondsOfSecond, 1) + " ns";
}

std::string GoalText(const Goal& goal) {
    if (goal.ratio) {
        return Number(*goal.ratio, 2);
    }
    return goal.nanoseconds ? Number(*goal.nanoseconds, 0) + " ns more" : "-";
}

// Median and quartiles, as two fields of the table.
std::string SpreadText(const Spread& spread, double unit, int decimals, const char* behindMedian) {
    return Number(spread.median / unit, decimals) + behindMedian + " | " + Number(spread.low / unit, decimals) +
           " to " + Number(spread.high / unit, decimals);
}

std::string ResultText(const Goal& goal, const Spread& ratio, const Spread& difference) {
    if (goal.nanoseconds) {
        return SpreadText(difference, 1 / kNanosecondsOfSecond, 1, " ns more");
    }
    return SpreadText(ratio, 1, 2, "");
}

const char* VerdictText(const Goal& goal, const Spread& ratio, const Spread& difference) {
    if (goal.ratio) {
        return ratio.median <= *goal.ratio ? "yes" : "no";
    }
    if (goal.nanoseconds) {
        return difference.median * kNanosecondsOfSecond <= *goal.nanoseconds ? "yes" : "no";
    }
    return "-";
}

[[noreturn]] void Usage() {
    std::fprintf(stderr, "arguments: [--pairs N] [--only TEXT] [--growth]; N is 20 or more\n");
    std::exit(2);
}

} // namespace

double Timed(std::size_t times, const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < times; ++i) {
        work();
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return taken.count() / static_cast<double>(times);
}

Runner::Runner(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--growth") {
            m_growth = true;
        } else if (argument == "--pairs" && i + 1 < argc) {
            m_pairs = std::strtoul(argv[++i], nullptr, 10);
        } else if (argument == "--only" && i + 1 < argc) {
            m_only = argv[++i];
        } else {
            Usage();
        }
    }
    if (m_pairs < kLeastPairs) {
        Usage();
    }
    SetPriorityClass(GetCurrentProcess(), ABOVE_NORMAL_PRIORITY_CLASS);
}

bool Runner::IsWanted(const std::string& name) const {
    return name.find(m_only) != std::string::npos;
}

void Runner::Measure(const Row& row) {
    if (m_growth || !IsWanted(row.operation)) {
        return;
    }
    row.operate(); // what only the first time costs is not what is measured
    row.least();
    std::vector<double> operations;
    std::vector<double> floors;
    std::vector<double> ratios;
    std::vector<double> differences;
    const auto start = std::chrono::steady_clock::now();
    const auto isEnough = [&](std::size_t made) {
        const auto taken = std::chrono::steady_clock::now() - start;
        if (made < m_pairs) {
            return made >= kLeastPairs && taken > kMostTime;
        }
        return made >= kMostPairs || taken >= kLeastTime;
    };
    for (std::size_t made = 0; !isEnough(made); ++made) {
        operations.push_back(row.operate());
        floors.push_back(row.least());
        ratios.push_back(operations.back() / floors.back());
        differences.push_back(operations.back() - floors.back());
    }
    const Spread ratio(ratios);
    const Spread difference(differences);
    std::printf("| %s | %s | %s | %s | %s | %s | %s |\n", row.operation.c_str(), row.floor.c_str(),
                ResultText(row.goal, ratio, difference).c_str(), GoalText(row.goal).c_str(),
                VerdictText(row.goal, ratio, difference), TimeText(Spread(operations).median).c_str(),
                TimeText(Spread(floors).median).c_str());
    std::fflush(stdout);
}

void Runner::Grow(const std::string& what, const std::string& unit, const std::vector<double>& sizes,
                  const std::function<double(double size)>& secondsFor) {
    if (!m_growth || !IsWanted(what)) {
        return;
    }
    for (const double size : sizes) {
        std::vector<double> times;
        for (int i = 0; i < kRoundsOfPoint; ++i) {
            times.push_back(secondsFor(size));
        }
        std::printf("growth\t%s\t%s\t%.10g\t%.9f\n", what.c_str(), unit.c_str(), size, Spread(times).median);
        std::fflush(stdout);
    }
}

int Run(int argc, char** argv, const std::function<void(Runner&)>& measurements) {
    Runner runner(argc, argv);
    try {
        measurements(runner);
    } catch (const std::exception& failure) {
        std::fflush(stdout);
        std::fprintf(stderr, "failed: %s\n", failure.what());
        return 1;
    }
    return 0;
}

} // namespace bench

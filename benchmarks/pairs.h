/**
 * @file
 * Measures an operation beside its floor: the least work with which anybody could have the same result. Both run in the
 * same process, in short rounds and by turns (a, b, a, b...), so that whatever else the machine does meets both. The
 * ratio of a row is the median of its pairs' ratios, with their quartiles.
 */
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

/** Seconds that one operation took, as measured by one round. Throws Failure when it did not work. */
using Round = std::function<double()>;

/** An operation that does not do what is measured: its time would mean nothing. */
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Throws unless the operation did what it is measured for. */
inline void Require(bool worked, const char* what) {
    if (!worked) {
        throw Failure(what);
    }
}

/** How much more than its floor an operation may take. */
struct Goal {
    static Goal Times(double ratio) { return {ratio, std::nullopt}; }
    static Goal Nanoseconds(double more) { return {std::nullopt, more}; }
    static Goal None() { return {}; }

    std::optional<double> ratio;
    std::optional<double> nanoseconds;
};

/** One row of the table. */
struct Row {
    std::string operation;
    std::string floor;
    Goal goal;
    Round operate;
    Round least;
};

/** Runs @p work so many times and gives the seconds of one. */
double Timed(std::size_t times, const std::function<void()>& work);

/** What the command line asks for, and where the rows are printed. */
class Runner {
public:
    /**
     * Reads the command line: --pairs N, --only TEXT, --growth. Ends the process when it is not understood.
     * Raises this process above ordinary programs, so that fewer rounds are cut in two.
     */
    Runner(int argc, char** argv);

    /** Measures a row and prints it, unless another one is asked for or the growth. Quick rounds make more pairs. */
    void Measure(const Row& row);

    /** Measures how the time grows with @p sizes and prints a point for each: the median of a few rounds. */
    void Grow(const std::string& what, const std::string& unit, const std::vector<double>& sizes,
              const std::function<double(double size)>& secondsFor);

    bool WantsGrowth() const noexcept { return m_growth; }

private:
    bool IsWanted(const std::string& name) const;

    std::size_t m_pairs = 31;
    std::string m_only;
    bool m_growth = false;
};

/** Runs a program's measurements; a failure is printed and becomes the exit code 1. */
int Run(int argc, char** argv, const std::function<void(Runner&)>& measurements);

} // namespace bench

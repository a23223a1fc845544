// The worker's own code writes to its log, which is there as long as the tests run.
#include <gtest/gtest.h>
#include <log4cplus/initializer.h>

#include <optional>

namespace {

class LogEnvironment final : public testing::Environment {
public:
    void SetUp() override { m_log.emplace(); }
    void TearDown() override { m_log.reset(); }

private:
    std::optional<log4cplus::Initializer> m_log;
};

[[maybe_unused]] testing::Environment* const kLogEnvironment = testing::AddGlobalTestEnvironment(new LogEnvironment);

} // namespace

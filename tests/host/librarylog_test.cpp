// What the host reads out of the library's log.
#include "host/librarylog.h"

#include "sdk/util/logtool.h"

#include <gtest/gtest.h>
#include <log4cplus/loggingmacros.h>

namespace kxrecord {
namespace {

TEST(LibraryLog, RefusalInTheLog_IsTheWorkersResult) {
    const Exchange exchange = ExchangeOf(L"IPC failed!err=-12(KxScreenRecord::ScreenRecordProxy::SendVCRMessage)");
    EXPECT_EQ(exchange.result, -12);
    EXPECT_FALSE(exchange.isUnanswered);
}

TEST(LibraryLog, FailedSend_IsAMissingAnswer) {
    for (const wchar_t* const message :
         {L"Send IPC msg failed!(KxScreenRecord::ScreenRecordProxy::SendVCRMessage)",
          L"Send IPC msg(StartLiveServer) failed!(KxScreenRecord::ScreenRecordProxy::StartLiveServer)"}) {
        EXPECT_TRUE(ExchangeOf(message).isUnanswered);
        EXPECT_EQ(ExchangeOf(message).result, std::nullopt);
    }
}

TEST(LibraryLog, OtherMessages_TellNothing) {
    for (const wchar_t* const message : {L"", L"IPC failed!err=", L"IPC failed!err=(x)", L"IPC failed!err=-1x(y)",
                                         L"IPC failed!err=99999999999(x)", L"something else"}) {
        const Exchange exchange = ExchangeOf(message);
        EXPECT_EQ(exchange.result, std::nullopt) << message;
        EXPECT_FALSE(exchange.isUnanswered) << message;
    }
}

TEST(LibraryLog, MessageWhileListening_IsTakenOnce) {
    LibraryLog log(false);
    LOG4CPLUS_ERROR(GetLogger(), L"IPC failed!err=-7(SendVCRMessage)");
    LOG4CPLUS_ERROR(GetLogger(), L"Send IPC Message failed(PrepareTimemachine)");
    EXPECT_EQ(log.TakeExchange().result, -7);
    EXPECT_EQ(log.TakeExchange().result, std::nullopt);
}

TEST(LibraryLog, AfterItsEnd_TheLoggerIsAsBefore) {
    const std::size_t before = GetLogger().getAllAppenders().size();
    { const LibraryLog log(false); }
    EXPECT_EQ(GetLogger().getAllAppenders().size(), before);
}

} // namespace
} // namespace kxrecord

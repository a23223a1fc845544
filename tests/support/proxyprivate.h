/** @file The private members of ScreenRecordProxy, for tests. */
#pragma once

#include "screenrecordproxy.h"
#include "sdk/ipcmessage/ipcmessage.h"
#include "support/privateaccess.h"

#include <atomic>

namespace proxyprivate {

using KxScreenRecord::RecordMode;
using KxScreenRecord::RunStatus;
using KxScreenRecord::ScreenRecordProxy;

template <class Member>
struct Named {
    using Type = Member;
};
struct RecordModeTag : Named<std::atomic<RecordMode> ScreenRecordProxy::*> {};
struct RunStatusTag : Named<std::atomic<RunStatus> ScreenRecordProxy::*> {};
struct LockTag : Named<CRITICAL_SECTION ScreenRecordProxy::*> {};
struct ClientTag : Named<IPCMessageClient * ScreenRecordProxy::*> {};
struct ReadyEventTag : Named<void * ScreenRecordProxy::*> {};
struct WorkerProcessTag : Named<std::atomic<void*> ScreenRecordProxy::*> {};
struct MonitorThreadTag : Named<void * ScreenRecordProxy::*> {};
struct CheckEnvTag : Named<unsigned long (ScreenRecordProxy::*)()> {};
struct CreateRecordProcessTag : Named<unsigned long (ScreenRecordProxy::*)(void*&)> {};
struct WaitProcessRunResultTag : Named<unsigned long (ScreenRecordProxy::*)(void*&, unsigned long)> {};
struct MonitorProcTag : Named<void (ScreenRecordProxy::*)()> {};
struct MonitorEntryTag : Named<unsigned long(__stdcall*)(void*)> {};
struct OnReadyTag : Named<void (ScreenRecordProxy::*)(TagIPCMessageItem&)> {};
struct OnErrorTag : Named<void (ScreenRecordProxy::*)()> {};
struct SendVCRMessageTag : Named<bool (ScreenRecordProxy::*)(unsigned int, TagIPCMessageItem&)> {};

using kxtest::kPrivate;

inline std::atomic<RecordMode>& Mode(ScreenRecordProxy& proxy) {
    return proxy.*kPrivate<RecordModeTag>;
}
inline std::atomic<RunStatus>& Status(ScreenRecordProxy& proxy) {
    return proxy.*kPrivate<RunStatusTag>;
}
inline CRITICAL_SECTION& Lock(ScreenRecordProxy& proxy) {
    return proxy.*kPrivate<LockTag>;
}
inline IPCMessageClient*& Client(ScreenRecordProxy& proxy) {
    return proxy.*kPrivate<ClientTag>;
}
inline void*& ReadyEvent(ScreenRecordProxy& proxy) {
    return proxy.*kPrivate<ReadyEventTag>;
}
inline std::atomic<void*>& WorkerProcess(ScreenRecordProxy& proxy) {
    return proxy.*kPrivate<WorkerProcessTag>;
}
inline void*& MonitorThread(ScreenRecordProxy& proxy) {
    return proxy.*kPrivate<MonitorThreadTag>;
}

inline unsigned long CheckEnv(ScreenRecordProxy& proxy) {
    return (proxy.*kPrivate<CheckEnvTag>)();
}
inline unsigned long CreateRecordProcess(ScreenRecordProxy& proxy, void*& process) {
    return (proxy.*kPrivate<CreateRecordProcessTag>)(process);
}
inline unsigned long WaitProcessRunResult(ScreenRecordProxy& proxy, void*& process, unsigned long timeoutMs) {
    return (proxy.*kPrivate<WaitProcessRunResultTag>)(process, timeoutMs);
}
inline void MonitorProc(ScreenRecordProxy& proxy) {
    (proxy.*kPrivate<MonitorProcTag>)();
}
inline void OnReady(ScreenRecordProxy& proxy, TagIPCMessageItem& item) {
    (proxy.*kPrivate<OnReadyTag>)(item);
}
inline void OnError(ScreenRecordProxy& proxy) {
    (proxy.*kPrivate<OnErrorTag>)();
}
inline bool SendVCRMessage(ScreenRecordProxy& proxy, unsigned int timeoutMs, TagIPCMessageItem& request) {
    return (proxy.*kPrivate<SendVCRMessageTag>)(timeoutMs, request);
}

} // namespace proxyprivate

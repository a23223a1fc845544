// The one place that names private members of the proxy; an explicit instantiation may do that.
#include "support/proxyprivate.h"

using KxScreenRecord::ScreenRecordProxy;

template struct kxtest::Expose<proxyprivate::RecordModeTag, &ScreenRecordProxy::m_recordMode>;
template struct kxtest::Expose<proxyprivate::RunStatusTag, &ScreenRecordProxy::m_runStatus>;
template struct kxtest::Expose<proxyprivate::LockTag, &ScreenRecordProxy::m_lock>;
template struct kxtest::Expose<proxyprivate::ClientTag, &ScreenRecordProxy::m_ipcClient>;
template struct kxtest::Expose<proxyprivate::ReadyEventTag, &ScreenRecordProxy::m_readyEvent>;
template struct kxtest::Expose<proxyprivate::WorkerProcessTag, &ScreenRecordProxy::m_workerProcess>;
template struct kxtest::Expose<proxyprivate::MonitorThreadTag, &ScreenRecordProxy::m_monitorThread>;
template struct kxtest::Expose<proxyprivate::CheckEnvTag, &ScreenRecordProxy::CheckEnv>;
template struct kxtest::Expose<proxyprivate::CreateRecordProcessTag, &ScreenRecordProxy::CreateRecordProcess>;
template struct kxtest::Expose<proxyprivate::WaitProcessRunResultTag, &ScreenRecordProxy::WaitProcessRunResult>;
template struct kxtest::Expose<proxyprivate::MonitorProcTag, &ScreenRecordProxy::ScrRecProcessMonitorThreadProc>;
template struct kxtest::Expose<proxyprivate::MonitorEntryTag,
                               &ScreenRecordProxy::ScrRecProcessMonitorThreadProcWarpper>;
template struct kxtest::Expose<proxyprivate::OnReadyTag, &ScreenRecordProxy::OnRecordProcessIPCReady>;
template struct kxtest::Expose<proxyprivate::OnErrorTag, &ScreenRecordProxy::OnError>;
template struct kxtest::Expose<proxyprivate::SendVCRMessageTag, &ScreenRecordProxy::SendVCRMessage>;

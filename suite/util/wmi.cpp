// One property of a WMI query's first row, over COM. What the thread has made of COM before stays as it is.
#include "sdk/util/wmi.h"

#include "common/win/com.h"

#include <windows.h>
// The WMI interfaces need the types of windows.h.
#include <wbemcli.h>

#include <new>

namespace {

constexpr long kAnswerTimeoutMs = 30'000;

/** Whether a call of COM or WMI succeeded; no memory is std::bad_alloc. */
bool HasSucceeded(HRESULT result) {
    if (result == E_OUTOFMEMORY || result == static_cast<HRESULT>(WBEM_E_OUT_OF_MEMORY)) {
        throw std::bad_alloc();
    }
    return SUCCEEDED(result);
}

kx::BString ToBString(const std::wstring& text) {
    kx::BString copy(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
    if (!copy) {
        throw std::bad_alloc();
    }
    return copy;
}

/** A variant that is emptied at the end. */
class OwnedVariant {
public:
    OwnedVariant() noexcept { VariantInit(&m_value); }
    ~OwnedVariant() { VariantClear(&m_value); }
    OwnedVariant(const OwnedVariant&) = delete;
    OwnedVariant& operator=(const OwnedVariant&) = delete;

    VARIANT* Get() noexcept { return &m_value; }

    /** The value as text; empty when it is null or has no text form. */
    std::wstring ToText() {
        if (m_value.vt == VT_NULL || m_value.vt == VT_EMPTY ||
            !HasSucceeded(VariantChangeType(&m_value, &m_value, VARIANT_ALPHABOOL, VT_BSTR))) {
            return {};
        }
        return {m_value.bstrVal, SysStringLen(m_value.bstrVal)};
    }

private:
    VARIANT m_value;
};

} // namespace

struct WMI::Connection {
    kx::ComApartment apartment; // first, so that the thread leaves it after the interfaces are released
    kx::ComPtr<IWbemServices> services;
};

namespace {

kx::ComPtr<IWbemServices> Connect(const std::wstring& nameSpace) {
    kx::ComPtr<IWbemLocator> locator;
    if (!HasSucceeded(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                       reinterpret_cast<void**>(locator.Receive())))) {
        return {};
    }
    kx::ComPtr<IWbemServices> services;
    if (!HasSucceeded(locator->ConnectServer(ToBString(nameSpace).Get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                             services.Receive()))) {
        return {};
    }
    // WMI acts as the caller. Where the connection is no proxy there is nothing to set, and a failure is none.
    CoSetProxyBlanket(services.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                      RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    return services;
}

} // namespace

WMI::WMI(const std::wstring& nameSpace) : m_connection(std::make_unique<Connection>()) {
    static_cast<void>(HasSucceeded(m_connection->apartment.Result()));
    m_connection->services = Connect(nameSpace);
}

WMI::~WMI() = default;

std::wstring WMI::SelectStr(const std::wstring& query, const std::wstring& property) const {
    if (!m_connection->services) {
        return {};
    }
    IWbemServices& services = *m_connection->services.Get();
    kx::ComPtr<IEnumWbemClassObject> rows;
    if (!HasSucceeded(services.ExecQuery(ToBString(L"WQL").Get(), ToBString(query).Get(),
                                         WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                         rows.Receive()))) {
        return {};
    }
    kx::ComPtr<IWbemClassObject> row;
    ULONG count = 0;
    if (!HasSucceeded(rows->Next(kAnswerTimeoutMs, 1, row.Receive(), &count)) || count != 1) {
        return {};
    }
    OwnedVariant value;
    if (!HasSucceeded(row->Get(property.c_str(), 0, value.Get(), nullptr, nullptr))) {
        return {};
    }
    return value.ToText();
}

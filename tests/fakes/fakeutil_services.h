/**
 * @file
 * Control interface of the scriptable Util.dll, services part: the user's SID, the agreement service, firmware texts,
 * WMI, the system DPI, plug-ins and the product. Every call is recorded under the name that the library's headers give
 * it ("WMI::SelectStr", "ProductAdapt::MachineType::GetProductName"). All functions may be called from any thread.
 */
#pragma once

#include "fakes/fakeutil.h"

#include "sdk/util/productadapt.h"

#include <optional>
#include <set>
#include <string>

namespace fakeutil {

/** The user's SID after Reset. */
inline constexpr const wchar_t* kDefaultSid = L"S-1-5-21-11-22-33-1001";

FAKEUTIL_API void SetUserSid(std::wstring sid);
FAKEUTIL_API std::wstring UserSid();

/** What AccountUtil::IsSupportTms answers; false after Reset. */
FAKEUTIL_API void SetSupportTms(bool supported);
FAKEUTIL_API bool SupportsTms();

/** The firmware's texts, all empty after Reset. */
struct SmBiosTexts {
    std::wstring sysSku;
    std::wstring secSku;
    std::wstring oemString1;
    std::wstring sysVersion;
};
FAKEUTIL_API void SetSmBios(SmBiosTexts texts);

/** Decides WMI::SelectStr from namespace, query and property; undecided queries give an empty string. */
FAKEUTIL_API void ScriptWmi(Script<std::wstring, const std::wstring&, const std::wstring&, const std::wstring&> script);

/** The argument that a query is recorded with under "WMI::SelectStr". */
FAKEUTIL_API std::string WmiQuery(const std::wstring& nameSpace, const std::wstring& query,
                                  const std::wstring& property);

/** WMI objects that have not been destroyed. */
FAKEUTIL_API int LiveWmiObjects();

/** 96 after Reset. */
FAKEUTIL_API void SetSystemDpi(int dpi);

/** The plug-ins that ZLKSoftShelf supports; none after Reset. */
FAKEUTIL_API void SetSupportedPlugins(std::set<std::string> names);

/** A getter's result code, and what it writes into its output whatever the code; an absent value leaves the output. */
template <class Value>
struct ProductAnswer {
    int code = ProductAdapt::kNoProfile;
    std::optional<Value> value;
};

/** After Reset every getter of the product gives kNoProfile and writes nothing, and the index is -1. */
FAKEUTIL_API void SetProductName(ProductAnswer<std::string> answer);
FAKEUTIL_API void SetPromoteParamInfo(ProductAnswer<ProductAdapt::PromoteParamInfo> answer);
FAKEUTIL_API void SetProductIndex(int index);
/** @param getter the member's name, such as "GetFingerprintStatus" */
FAKEUTIL_API void SetProductFeature(const std::string& getter, ProductAnswer<bool> answer);

} // namespace fakeutil

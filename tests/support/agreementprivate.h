/** @file The private members of AgreementSign, for tests. */
#pragma once

#include "agreementsign.h"
#include "support/privateaccess.h"

#include <string>

namespace agreementprivate {

struct JudgeWhenLoginTag {
    using Type = int (*)(const std::wstring&, const std::string&, const std::string&);
};
struct JudgeBranchIdTag {
    using Type = int (*)(const std::wstring&);
};
struct RecordeAgreeFlagTag {
    using Type = void (*)();
};
struct DeleteAgreeFlagTag {
    using Type = void (*)();
};

inline int JudgeWhenLogin(const std::wstring& recordKey, const std::string& agreement, const std::string& privacy) {
    return kxtest::kPrivate<JudgeWhenLoginTag>(recordKey, agreement, privacy);
}
inline int JudgeBranchId(const std::wstring& recordKey) {
    return kxtest::kPrivate<JudgeBranchIdTag>(recordKey);
}
inline void RecordeAgreeFlag() {
    kxtest::kPrivate<RecordeAgreeFlagTag>();
}
inline void DeleteAgreeFlag() {
    kxtest::kPrivate<DeleteAgreeFlagTag>();
}

} // namespace agreementprivate

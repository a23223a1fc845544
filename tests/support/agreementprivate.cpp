// The one place that names private members of AgreementSign; an explicit instantiation may do that.
#include "support/agreementprivate.h"

template struct kxtest::Expose<agreementprivate::JudgeWhenLoginTag, &AgreementSign::JudgeWhenLogin>;
template struct kxtest::Expose<agreementprivate::JudgeBranchIdTag, &AgreementSign::JudgeBranchId>;
template struct kxtest::Expose<agreementprivate::RecordeAgreeFlagTag, &AgreementSign::RecordeAgreeFlag>;
template struct kxtest::Expose<agreementprivate::DeleteAgreeFlagTag, &AgreementSign::DeleteAgreeFlag>;

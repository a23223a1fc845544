/**
 * @file
 * AgreementSign: has the current user accepted the user agreement and the privacy statement that are in force?
 *
 * The answer is read from the agreement service's registry records, all of them below
 * "\Software\Calvora\AgreementService" of the current user: the versions in force, which the server provides or
 * which came with the installation, and the versions that the user accepted last, kept apart for a user who was
 * logged in to an account and for one who was not. Value "133" is a version of the user agreement, "10021" one of
 * the privacy statement.
 *
 * Versions are compared as plain text, byte by byte, so that 9 is newer than 10. A value that is missing reads as
 * an empty text, which is older than every version.
 */
#pragma once

#include "kxexport.h"

#include <string>

/**
 * Judges and records the current user's consent. The class has only static members and keeps nothing in memory:
 * every call reads the registry afresh. Any thread may call it. Nothing throws and nothing is logged; a failed
 * write or deletion is ignored.
 */
class KXSCREENRECORD_API AgreementSign {
public:
    /** What the judgements answer. Callers let kSigned and kNotApplicable pass. */
    enum Result : int {
        kSigned = -1,       ///< accepted in the versions in force, or the cache flag says so
        kNoRecord = 0,      ///< the user has no record of acceptance, or there was no memory to read it
        kMustSignAgain = 1, ///< an accepted version is older than the one in force
        kNotApplicable = 2, ///< this installation does not use the agreement service
    };

    /**
     * The judgement for the current user, logged in or not: kNotApplicable without the agreement service, else
     * kSigned when the cache flag is set, else JudgeAgreementSignLogin() when the value "UserLoginFlag" is "1" and
     * JudgeAgreementSignWithoutLogin() otherwise.
     * @return a Result
     */
    static int JudgeAgreementSign() noexcept;

    /**
     * The judgement for a user who is logged in to an account. The versions in force are those in
     * "WithAccountLogin\TMSVersion" when the value "ServerUpdatedFlag" is "1", otherwise those in
     * "WithoutAccountLogin\LocalVersion". They are held against the record "KXRecordWithLogin" and, unless that is
     * signed, against "KXRecordWithLoginCache", whose answer counts when the key exists.
     * @return kSigned, kNoRecord when neither record exists, or kMustSignAgain
     */
    static int JudgeAgreementSignLogin() noexcept;

    /**
     * The judgement for a user without a login. The versions in force are those in
     * "WithoutAccountLogin\TMSVersion" when the value "ServerUpdatedFlag" is "1", otherwise those in
     * "WithoutAccountLogin\LocalVersion". They are held against the value "Version" of "UserAgreement" and
     * "PrivacyStatement" below the record "KXRecordWithoutLogin".
     * @return kSigned, kNoRecord when the record does not exist, or kMustSignAgain
     */
    static int JudgeAgreementSignWithoutLogin() noexcept;

    /** The agreement cache flag: whether the value "WndAgreeCache" is exactly "1". */
    static bool GetAgreeCache() noexcept;

    /** Writes the agreement cache flag, "1" or "0", making the key when it does not exist. */
    static void SetAgreeCache(bool agreed) noexcept;

private:
    /**
     * Holds the versions "133" and "10021" of a record of acceptance against those in force.
     * @param recordKey path of the record below the user's SID, with a backslash in front
     * @param agreementVersion version of the user agreement in force
     * @param privacyVersion version of the privacy statement in force
     * @return kSigned, kNoRecord when the key does not exist, or kMustSignAgain
     */
    static int JudgeWhenLogin(const std::wstring& recordKey, const std::string& agreementVersion,
                              const std::string& privacyVersion) noexcept;

    /**
     * Compares the branch id ("BranchId") that was accepted with the one in force, which is the local one.
     * @param recordKey "\Software\Calvora\AgreementService\KXRecordWithLogin" or
     *        "\Software\Calvora\AgreementService\KXRecordWithLoginCache", exactly so, for a user who is logged in;
     *        anything else asks for the user without a login
     * @return kSigned when they are equal, two missing ones included, otherwise (or without memory) kMustSignAgain
     */
    static int JudgeBranchId(const std::wstring& recordKey) noexcept;

    /** Sets the agree flag: writes the text "1" to the value "AgreeFlag", making the key when it does not exist. */
    static void RecordeAgreeFlag() noexcept;

    /** Deletes the value "AgreeFlag" when its key exists. */
    static void DeleteAgreeFlag() noexcept;
};

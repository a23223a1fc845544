/**
 * @file
 * What product this machine is and what it can do (Util.dll).
 *
 * The answers come from "config\ProductProfile.xml" in the folder of the loaded Util.dll. Every call reads the
 * file afresh, so that a replaced profile takes effect at once. Texts are UTF-8. Nothing is thrown but
 * std::bad_alloc; every function may be called from any thread. A function that fails leaves its output untouched.
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <string>

namespace ProductAdapt {

/** Result codes of this header's functions; every code but kOk is a failure. */
enum ProductResult : int {
    kOk = 0,        /**< the answer was written */
    kNoProfile = 1, /**< the profile is missing or is no readable XML */
    kNotListed = 2, /**< the profile does not say, or says it in a form that cannot be read */
};

/** Promotion parameters of the product. */
struct PromoteParamInfo {
    int id = 0;              /**< number of the promotion */
    std::string productName; /**< the product's name in the sharing service */
    std::string channel;     /**< sales channel */
    int flags = 0;           /**< flags of the promotion */
};

/** Identity of the product. */
class KXUTIL_API MachineType {
public:
    MachineType(const MachineType&) = delete;
    MachineType& operator=(const MachineType&) = delete;

    /** The one object; it belongs to the library. */
    static const MachineType& GetInstance();

    /** The product's name. */
    int GetProductName(std::string& name) const;

    /** The product's promotion parameters that are listed under @p key. */
    int GetPromoteParamInfo(const std::string& key, PromoteParamInfo& info) const;

    /** The product's index, or -1 when it is unknown. */
    int GetProductIndex() const;

private:
    MachineType() = default;
    ~MachineType() = default;
};

/** Features of the product. Each getter sets its argument to whether the product has the feature and returns kOk. */
class KXUTIL_API ProductFeature {
public:
    ProductFeature(const ProductFeature&) = delete;
    ProductFeature& operator=(const ProductFeature&) = delete;

    /** The one object; it belongs to the library. */
    static const ProductFeature& GetInstance();

    int GetFingerprintStatus(bool& present) const;         /**< fingerprint reader */
    int GetTriFingerSnipperStatus(bool& present) const;    /**< three-finger screenshot gesture */
    int GetWifiGpioStatus(bool& present) const;            /**< Wi-Fi switched over a GPIO line */
    int GetWifiBiosRepairStatus(bool& present) const;      /**< Wi-Fi repair by the firmware */
    int GetBtGpioStatus(bool& present) const;              /**< Bluetooth switched over a GPIO line */
    int GetCpuPowerStatus(bool& present) const;            /**< processor power setting */
    int GetKeyboardLightStatus(bool& present) const;       /**< keyboard backlight */
    int GetEnergyStarStatus(bool& present) const;          /**< Energy Star */
    int GetSQGDataStatus(bool& present) const;             /**< local manual data */
    int GetSupportTimeBackStatus(bool& present) const;     /**< time-back */
    int GetSupportVrAssisantStatus(bool& present) const;   /**< VR assistant */
    int GetSupportLiveBroadcast(bool& present) const;      /**< live broadcast */
    int GetSupportOfficeCheck(bool& present) const;        /**< office check */
    int GetSupportIntegratedGraphics(bool& present) const; /**< integrated graphics */
    int GetSupportNpsPopStatus(bool& present) const;       /**< survey pop-up */

private:
    ProductFeature() = default;
    ~ProductFeature() = default;
};

} // namespace ProductAdapt

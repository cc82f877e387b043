#include "ModuleContract.h"

namespace qmxkf {

const std::vector<const char*> kContractExports = {
#include "QMXKeyFrameExports.inc"
};

const std::vector<const char*> kContractHostSymbols = {
    "IID_IUnknown", "IID_IClassFactory", "InterlockedIncrement", "InterlockedDecrement",
    "QMXGetDefaultLogger", "QMXSetDefaultLogger", "_ZN9QMXCommon12GetInterfaceERK5_GUIDP8IUnknownjS2_PPv",
    "_ZN9QMXCommon10Char2WCharEPKcPwi", "_ZN9QMXCommon10WChar2CharEPKwPci",
    "_ZN9QMXCommon8KeyFrame21CaculateKeyFrameIndexEdi",
    "_ZN9QMXCommon8KeyFrame24CaculateKeyFramePositionEii"};

const std::vector<ContractIdentifier> kContractIdentifiers = {
    {"CLSID_QMXKeyFrame", {0x5AE1FA35, 0x448E, 0x42E6, {0x9C, 0x75, 0xBC, 0x1E, 0x8D, 0xBF, 0x89, 0x42}}},
    {"IID_IQMXKeyFrame", {0x17023CB6, 0x6191, 0x4B63, {0x8C, 0x9B, 0xEC, 0x29, 0x9C, 0xF1, 0x60, 0x54}}},
    {"CLSID_QMXKeyFrameKV", {0x7691319E, 0x2504, 0x4055, {0xB2, 0xB1, 0x5F, 0xD8, 0x4C, 0x87, 0x09, 0x58}}},
    {"IID_IQMXKeyFrameKV", {0x50A70D70, 0xD2D5, 0x42E4, {0xBF, 0x3B, 0xE0, 0x73, 0x6D, 0xDC, 0xD4, 0x9E}}},
    {"IID_IQMXStorage", {0xB58DC8D7, 0xB8EC, 0x4254, {0x81, 0x4F, 0xDF, 0x40, 0xF5, 0x72, 0xB3, 0x12}}},
    {"IID_IUnknown", {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}},
    {"IID_IClassFactory", {0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}},
};

const std::vector<ContractClass> kContractClasses = {
    {"CLSID_QMXKeyFrame", L"Create KeyFrame object", "_Z22CreateKeyFrameInstanceP8IUnknownPi",
     {"IID_IUnknown", "IID_IQMXKeyFrame", "IID_IQMXStorage"}, "IID_IQMXKeyFrameKV"},
    {"CLSID_QMXKeyFrameKV", L"Create KeyFrame Param", "_Z24CreateKeyFrameKVInstanceP8IUnknownPi",
     {"IID_IUnknown", "IID_IQMXKeyFrameKV"}, "IID_IQMXStorage"},
};

}  // namespace qmxkf

#include "entry/ZorEntry.h"

#include "entry/Registry.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/JokDLL.h"
#include "framework/kor/Module.h"

#include <dlfcn.h>

namespace {

// {0DB88D49-CCCA-4F2A-8AAF-5B20CFAD7B24}
constexpr IID IID_IZorDirectFBScreen = {
    0x0DB88D49, 0xCCCA, 0x4F2A, {0x8A, 0xAF, 0x5B, 0x20, 0xCF, 0xAD, 0x7B, 0x24}};
// {CC87EC4F-97AE-4F19-B9E3-FB16BD8B629A}
constexpr IID IID_IZorPZorChannel = {
    0xCC87EC4F, 0x97AE, 0x4F19, {0xB9, 0xE3, 0xFB, 0x16, 0xBD, 0x8B, 0x62, 0x9A}};

// Run by the utility library once the host has loaded the module.
void ZorInitialise() {
    if (!CKorModuleBase::sm_hInstance) {
        CKorModuleBase::sm_hInstance = dlopen(nullptr, RTLD_NOW);
    }
    JokRegisterInterfaceIdName(IID_IZorDirectFBScreen, "IZorDirectFBScreen");
    JokRegisterInterfaceIdName(IID_IZorPZorChannel, "IZorPZorChannel");
}

struct SInitialiserRegistration {
    SInitialiserRegistration() { BelAddInitialiser(&ZorInitialise); }
} s_InitialiserRegistration;

} // namespace

CJokDLL& ZorModuleObject() {
    // Made on first use, after every registration, so that it is destroyed before them: its
    // destruction releases the registrations it holds.
    static CJokDLL moduleObject;
    return moduleObject;
}

unsigned long zor_GetInterface(void** result) {
    CJokDLL& module = ZorModuleObject();
    CZorComponentRegistry::MoveRegistrationsTo(module);
    return static_cast<unsigned long>(module.ExternalQueryInterface(IID_IUnknown, result));
}

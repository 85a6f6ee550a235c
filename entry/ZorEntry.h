// The module's one exported free function, and the module object behind it.
#pragma once

class CJokDLL;

// Answers the status of the module object's ExternalQueryInterface for IUnknown; on success
// *result holds the module object's IUnknown with one reference for the caller. The first call
// moves every registration into the module object's function list.
extern "C" __attribute__((visibility("default"))) unsigned long zor_GetInterface(void** result);

// The module object (static lifetime).
CJokDLL& ZorModuleObject();

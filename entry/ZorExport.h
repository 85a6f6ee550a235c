// Marks the processing classes that other modules may use: the plugin is built with hidden
// visibility, so only zor_GetInterface and these classes are exported.
#pragma once

#define ZOR_EXPORT __attribute__((visibility("default")))

// Checks a filter script file the way the advanced packet filter compiles it, for the command
// line (zor-run --check-filter FILE): the parse messages with line and position, or the
// variables the script uses (the filter's own names marked) and the compiled tree.
#pragma once

// Writes the report (to stdout, or to stderr when the script has errors) and answers the exit
// status: 0 when the script compiles, 1 when it does not, 2 when the file cannot be read.
int ZorCheckFilterFile(const char* program, const char* path);

#!/usr/bin/env bash
# The plugin must export zor_GetInterface and class members only (no free functions, no standard
# library instantiations).
set -euo pipefail
lib=$1
symbols=$(nm -D --defined-only "$lib" | c++filt | cut -d' ' -f3-)
grep -qx 'zor_GetInterface' <<<"$symbols" || { echo "zor_GetInterface is not exported"; exit 1; }
stray=$(grep -vE '^zor_GetInterface$|^C[A-Za-z0-9_]*::|^(typeinfo|typeinfo name|vtable) for C' <<<"$symbols" || true)
if [ -n "$stray" ]; then
    echo "unexpected exports:"; echo "$stray"; exit 1
fi
echo "exports: $(wc -l <<<"$symbols") symbols, all expected"

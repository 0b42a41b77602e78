#!/usr/bin/env bash
# Fails when liborvane.so exports a symbol that is not part of its public
# interface. Allowed: members, vtables and type information of the public
# classes (orvane::<Class>..., orvane::test::<Class>... for the test
# harness), free operators of the namespace, and the
# standard-library instantiations the compiler must emit. Anything else (a
# helper in orvane::detail, a free function kept visible for the tests) is
# reported.
set -euo pipefail
lib=${1:?usage: check-exports.sh path/to/liborvane.so}

bad=$(nm -D --defined-only -C "$lib" | cut -d' ' -f3- |
    sed -E 's/^(vtable for|VTT for|construction vtable for|typeinfo for|typeinfo name for|guard variable for|non-virtual thunk to|virtual thunk to) //' |
    sed -E 's/^(((un)?signed|void|bool|char|short|int|long|float|double) )+//' |
    grep -Ev '^(orvane::(test::)?([A-Z]|operator)|std::|__gnu_cxx::)' || true)
if [ -n "$bad" ]; then
    echo "exports: liborvane.so exports symbols outside its public interface:"
    echo "$bad" | cut -c1-200
    exit 1
fi
echo "exports: $(nm -D --defined-only "$lib" | wc -l) symbols, all public classes or standard-library instantiations"

#!/bin/sh
# emulated.sh COMMAND...: runs a program as a processor of the first generation with AVX would. Newer instructions end it.
exec qemu-x86_64 -cpu max,-avx2,-fma,-f16c,-bmi1,-bmi2,-movbe,-adx,-abm "$@"

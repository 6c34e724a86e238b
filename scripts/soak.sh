#!/bin/bash
# The long form of the soak test: 10 million runs of a thousand shaders on one machine.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh

require "${build_packages[@]}"
build release
build/release/tests/trust/soak "${1:-10000000}"

#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# test.sh [PRESET]: builds everything and runs the tests; "release" unless another is named.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/tools/setup.sh"

run_tests "${1:-release}"

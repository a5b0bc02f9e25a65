#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# bench.sh [--data DIR] [--filter REGEX] [--repetitions N]
# Builds the benchmarks and their peers and prints a table of how we compare. DIR holds further
# JSON documents to parse and write.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/tools/setup.sh"

need iso-codes
build bench
exec "$talvo_root/tools/bench_table" "$talvo_root/build/bench" "$@"

#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# run.sh [FILE...]: builds two examples and runs them: json_document on JSON files, by default on
# the lists of countries, their parts and languages from the Debian package iso-codes, and pipeline
# on the system's documentation and these lists. Ctrl-C stops the second one in mid-run.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/tools/setup.sh"

need iso-codes
(($# > 0)) || set -- /usr/share/iso-codes/json/iso_{3166-1,3166-2,639-3}.json
build release --target json_document pipeline

readonly examples="$talvo_root/build/release/examples"
result=0
"$examples/json_document" "$@" || result=$?
echo
readonly summary=$talvo_root/build/pipeline.json
echo "What is in /usr/share/doc and /usr/share/iso-codes, at length in build/pipeline.json:"
"$examples/pipeline" --summary "$summary" /usr/share/doc /usr/share/iso-codes || result=$?
exit "$result"

#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# run.sh [FILE...]: builds the example json_document and runs it on JSON files, by default on the
# lists of countries, their parts and languages from the Debian package iso-codes.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/tools/setup.sh"

if (($# == 0)); then
  need iso-codes
  set -- /usr/share/iso-codes/json/iso_{3166-1,3166-2,639-3}.json
fi
build release --target json_document
exec "$talvo_root/build/release/examples/json_document" "$@"

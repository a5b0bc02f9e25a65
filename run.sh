#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# run.sh [FILE]: builds the example json_document and runs it on a JSON file, by default on the
# list of countries from the Debian package iso-codes.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/tools/setup.sh"

if (($# == 0)); then
  need iso-codes
  set -- /usr/share/iso-codes/json/iso_3166-1.json
fi
build release --target json_document
exec "$talvo_root/build/release/examples/json_document" "$@"

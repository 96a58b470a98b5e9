#!/bin/sh
# Builds the HTML reference of kelvo-filesystem with Doxygen (installing Debian's doxygen package when missing); any warning fails the build.
#
#   scripts/docs.sh            writes build/docs/html/index.html
#   KELVO_DOCS_OUTPUT=dir scripts/docs.sh   writes dir/html instead
set -eu

cd "$(dirname "$0")/.."

if ! command -v doxygen >/dev/null 2>&1; then
    echo "Installing: doxygen"
    sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo="sudo -n"
    fi
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -qq </dev/null
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends doxygen </dev/null
fi

KELVO_DOCS_OUTPUT=${KELVO_DOCS_OUTPUT:-build/docs}
export KELVO_DOCS_OUTPUT
mkdir -p "$KELVO_DOCS_OUTPUT"
doxygen docs/Doxyfile
echo "Reference written to $KELVO_DOCS_OUTPUT/html/index.html"

#!/bin/sh
# Installs the packages that the named purposes need and this machine lacks.
# Where it may not install, it says which package is missing and goes on: the
# build says what it cannot do without.
set -eu

wanted=
for purpose in "$@"; do
    case $purpose in
        build) wanted="$wanted g++ cmake ninja-build" ;;
        test) wanted="$wanted googletest postgresql-15 odbc-postgresql odbcinst" ;;
        demo) wanted="$wanted postgresql-15 unixodbc-dev libreadline-dev libsqliteodbc sqlite3" ;;
        bench) wanted="$wanted libbenchmark-dev postgresql-15 pkg-config libglib2.0-dev libicu-dev libsqlite3-dev liblmdb-dev
                       libpq-dev postgresql-server-dev-15 libre2-dev" ;;
        m32) wanted="$wanted g++-multilib" ;;
        clang) wanted="$wanted clang libclang-rt-14-dev" ;;
        fuzz) wanted="$wanted clang libclang-rt-14-dev" ;;
        lint) wanted="$wanted clang-format clang-tidy" ;;
        docs) wanted="$wanted doxygen" ;;
        *) echo "packages.sh: unknown purpose '$purpose'" >&2; exit 2 ;;
    esac
done

command -v dpkg-query >/dev/null 2>&1 || exit 0 # another system: its owner installs
missing=
for package in $wanted; do
    state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$state" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
    run=
elif command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
    run=sudo
else
    echo "These packages are missing and cannot be installed from here:$missing" >&2
    echo "Install them with: apt-get install$missing" >&2
    exit 0
fi
echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
$run apt-get update -qq
# shellcheck disable=SC2086
$run apt-get install -y -qq --no-install-recommends $missing >/dev/null

#!/bin/sh
# Loads this machine's package catalogue into an SQLite file.
# usage: tools/demo/packages.sh FILE
set -eu
file=$1
list=$(mktemp)
trap 'rm -f "$list"' EXIT
# Between fields and lines stand control characters, so that quotes mean nothing.
dpkg-query -W -f '${Package}\t${Section}\t${Priority}\t${Installed-Size}\t${Maintainer}\t${Version}\t${binary:Summary}\n' \
    | tr '\t\n' '\037\036' > "$list"
rm -f "$file"
sqlite3 "$file" <<END
create table packages(name text, section text, priority text, size integer, maintainer text,
                      version text, description text);
.mode ascii
.import "$list" packages
-- Sizes are in KiB; of the maintainer the domain of the address is kept.
update packages set maintainer = rtrim(substr(maintainer, instr(maintainer, '@') + 1), '>');
update packages set size = nullif(size, '');
END

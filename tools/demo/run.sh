#!/bin/sh
# Shows kuq on real input: settings written by hand, and the SQL scripts that the
# machine's own database packages ship.
# usage: tools/demo/run.sh BUILD
set -eu
build=$1
here=$(cd "$(dirname "$0")" && pwd)
kuq="$build/bin/kuq"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export KU_GPREFS="$work/global" KU_UPREFS="$work/user" PAGER=cat
mkdir "$KU_GPREFS" "$KU_UPREFS"
cp "$here/kuuprefs.xdb" "$KU_UPREFS/"
echo "width = 80" > "$KU_GPREFS/kugprefs.xdb"

# Shows a command, and runs it; a failure is shown like any other result.
show() {
    printf '\n$ kuq'
    printf ' %s' "$@"
    printf '\n'
    "$kuq" "$@" || echo "(exit status $?)"
}

show version
show prefs list
show prefs get width
show prefs set colour never
show prefs get colour
show prefs check "$here/broken.xdb"
show prefs check "$here/kuuprefs.xdb"
show tokens file="$here/orders.sql" hints=yes
show split file="$here/orders.sql" blocks=yes
show tokens file="$here/orders.sql" dialekt=db2
show highlight file="$here/orders.sql" colour=always
export KU_PATH="$here" # from here on orders stands for this directory's orders.sql
show grep pattern="([a-z]+)\.[a-z]+ +(=|>)" file=orders colour=always
show grep pattern=UPDATE file=orders icase=yes fixed=yes format=json

# The catalogue scripts of the server package: thousands of lines that nobody wrote for us.
scripts=$(find /usr/share/postgresql -maxdepth 2 -name '*.sql' 2>/dev/null | sort)
[ -n "$scripts" ] || echo "No SQL scripts of a database package on this machine: install postgresql."
for script in $scripts; do
    lines=$(wc -l < "$script")
    "$kuq" tokens file="$script" > "$work/tokens"
    tokens=$(wc -l < "$work/tokens")
    words=$(grep -c ' keyword  ' "$work/tokens" || true)
    odd=$(grep -c ' error  ' "$work/tokens" || true)
    statements=$("$kuq" split file="$script" blocks=yes format=json | grep -c '"statement"' || true)
    printf '\n%s\n  %s lines, %s tokens (%s keywords, %s not SQL), %s statements\n' \
        "$script" "$lines" "$tokens" "$words" "$odd" "$statements"
done
first=$(printf '%s\n' "$scripts" | head -n 1)
if [ -n "$first" ]; then
    printf '\n$ kuq split file=%s | head -n 20\n' "$first"
    "$kuq" split file="$first" > "$work/statements"
    head -n 20 "$work/statements"
fi

# The machine's own package catalogue, from an SQLite file through ODBC.
if command -v sqlite3 >/dev/null 2>&1 && odbcinst -q -d -n SQLite3 >/dev/null 2>&1 \
    && "$kuq" help report >/dev/null 2>&1; then
    "$here/packages.sh" "$work/packages.db"
    show report query="select section, priority, name, size, maintainer from packages" \
        connect="Driver=SQLite3;Database=$work/packages.db" \
        group='(section,priority)' sum=size avg=size max=size count=name top=0
    show report query="select maintainer, size from packages" group='"size desc"' sum=nothing \
        connect="Driver=SQLite3;Database=$work/packages.db"
    show report query="select section, name, description from packages" group=section top=2 \
        where="(name,'lib%-dev',description,'%header%')" long=30 format=csv \
        connect="Driver=SQLite3;Database=$work/packages.db"
    show report query="select name, size from packages" match="(name,'^lib[a-z]+[0-9]-dev$')" top=5 \
        sum=size connect="Driver=SQLite3;Database=$work/packages.db"
    show dump query="select priority, name from packages limit 20" group=priority sorted=no \
        connect="Driver=SQLite3;Database=$work/packages.db"
else
    echo "No report: install unixodbc-dev, libsqliteodbc, odbcinst and sqlite3, and build again."
fi

#!/bin/sh
# Fails if the integrator's guide lacks a log text of level 1 or 2.
# usage: log-texts.sh SOURCE_DIR
cd "$1" || exit 2

perl -0777 -ne '
    while (/\b\w*LOG\w*\(|\bLogAt\(/g) {
        my $start = pos;
        /\G.*?;\n/gs or next;
        my $statement = substr($_, $start, pos() - $start);
        next unless $statement =~ /\bLogLevel(Error|Warning)\b/ && $statement =~ /"((?:[^"\\]|\\.)*)"/;
        print "$1\n";
    }' main.cpp Gsm.cpp PhoneManager.cpp controllers/*.cpp datalink/*.cpp process/*.cpp platform/*/*.cpp include/common_qdbus.h | sort -u | {
    missing=0
    found=0
    while IFS= read -r text; do
        found=$((found + 1))
        grep -qF "\`$text\`" docs/integration.md && continue
        echo "docs/integration.md does not explain: $text"
        missing=1
    done
    echo "$found texts"
    [ "$found" -gt 50 ] && [ $missing -eq 0 ]
}

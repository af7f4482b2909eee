#!/bin/bash
# The migration piece of the `make run` session, sourced by sim/demo.sh and
# run with its helpers (say, send, log_lines) while pelkd serves "pelk".
# A container app's database is made sensitive and then given the engine of
# another container, over "migration", on a real SQLite file; sqlite-sim
# reads the engine id back through the device's sensitive-data extension.

demo_migration() {
    local db=/data/data/com.example.notes/databases/notes.db
    engine_id() {
        local id
        id=$(sqlite-sim "$db" 'pragma mirel_get_engine_id')
        echo "   engine id read back: ${id:-(no row)}"
    }

    say "migration <user> mirel_db <step> <db> ...: a container app's database moves to its container's engine"
    mkdir -p "${db%/*}"
    rm -f "$db" "$db-mirel"
    sqlite-sim "$db" "create table notes(title text, body text); insert into notes values('groceries', 'milk');"
    echo "   a real database, $db: $(sqlite-sim "$db" 'select count(*) from notes') row in \"notes\""
    engine_id
    echo "   never made sensitive, it has no engine id to move:"
    send migration 10 mirel_db set_engine_id "$db"
    log_lines pelkd:v 'migrateEngineId|migration mirel_db error' 2

    say "set_sensitive_from_db1 declares the old-format db's sensitive columns for container 10"
    send migration 10 mirel_db set_sensitive_from_db1 "$db" notes title,body
    engine_id
    echo "   what the extension keeps beside the db:"
    sed 's/^/     /' "$db-mirel"

    say "set_engine_id gives it container 11's engine; a second run finds it done and writes nothing"
    send migration 11 mirel_db set_engine_id "$db"
    engine_id
    send migration 11 mirel_db set_engine_id "$db"
    log_lines pelkd:v 'migrateEngineId' 2

    say "a column list that would smuggle SQL in after the pragma is refused before SQLite sees it"
    send migration 10 mirel_db set_sensitive_from_db1 "$db" notes "body\"); drop table notes; --"
    log_lines pelkd:v 'refused' 1
    echo "   \"notes\" still holds $(sqlite-sim "$db" 'select count(*) from notes') row; engine id $(sqlite-sim "$db" 'pragma mirel_get_engine_id')"
    echo "   a kind other than mirel_db or data fails:"
    send migration 10 copy anything
}

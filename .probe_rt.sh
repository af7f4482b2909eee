#!/bin/bash
pelkd >/dev/null 2>&1 &
sleep 1
P=$(pidof pelkd)
strace -f -p $P -o /work/main/.strace.out &
S=$!
sleep 0.5
# 20 round trips from an accepted caller: run the bench's client? use pelkctl if possible
for i in 1 2 3; do pelkctl is_mounted 10 >/dev/null 2>&1; done
sleep 0.5
kill $S

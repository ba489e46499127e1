#!/bin/bash
# Sends one line to the control port of the service that service_fixture_start.sh started in
# <dir> (started with a card configuration) and prints the service's one-line answer; fails when
# the answer is not "ok...".
# Usage: service_control.sh <dir> confirm|refuse <name>   or   service_control.sh <dir> pending
set -u
dir=$1
shift
port=$(cat "$dir/control-port") || exit 1
exec 3<>"/dev/tcp/127.0.0.1/$port" || exit 1
echo "$*" >&3
IFS= read -r answer <&3
exec 3<&-
echo "$answer"
case $answer in ok*) exit 0 ;; *) exit 1 ;; esac

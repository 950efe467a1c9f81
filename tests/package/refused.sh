#!/usr/bin/env bash
# refused.sh WORK FIND-ARGUMENTS TEXT...: checks that find_package(Pavex FIND-ARGUMENTS) of the
# package in WORK/moved fails with a message that contains each text. The environment variable
# CONSUMER_MPI_COMPILER is the wrapper of the MPI that the project finds.
set -euo pipefail
work=$1 arguments=$2
shift 2

project=$work/refused_${arguments//[^a-zA-Z0-9]/_}
rm -rf "$project"
mkdir -p "$project"
cat >"$project/CMakeLists.txt" <<PROJECT
cmake_minimum_required(VERSION 3.25)
project(Refused LANGUAGES CXX)
find_package(Pavex $arguments)
PROJECT
if said=$(cmake -S "$project" -B "$project/build" -DCMAKE_PREFIX_PATH="$work/moved" \
  ${CONSUMER_MPI_COMPILER:+-DMPI_CXX_COMPILER="$CONSUMER_MPI_COMPILER"} 2>&1); then
  echo "find_package(Pavex $arguments) was not refused:"
  echo "$said"
  exit 1
fi
said=$(tr -s ' \n' ' ' <<<"$said")
echo "$said"
for text in "$@"; do
  [[ $said = *"$text"* ]] || { echo "The message does not contain \"$text\"."; exit 1; }
done

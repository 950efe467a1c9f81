#!/usr/bin/env bash
# two_hosts.sh MPIEXEC WAY PROGRAM [ARGUMENT...]: runs the program as an MPI job of 4 processes, two
# on each of two hosts that share nothing but a network: two network namespaces with one cable
# between them. Every message of MPI goes through TCP, and none leaves the namespaces.
#
# Exits with 77 and a reason if the machine does not allow that. Otherwise exits with the code of
# the job, or with 1 if a host had no processes of the job, the cable was not used, or the job
# printed no line that ends with WAY. Removes the namespaces and the cable at its end.
set -uo pipefail
mpiexec=$1 way=$2
shift 2

skip() { echo "Skipped: $*"; exit 77; }

case $("$mpiexec" --version) in
  *"Open MPI"* | *OpenRTE*) ;;
  *HYDRA*) skip "over TCP, processes of MPICH on UCX may never return from MPI_Finalize" ;;
  *) skip "$mpiexec is not the launcher of Open MPI" ;;
esac
[ "$(uname)" = Linux ] || skip "network namespaces need Linux"
command -v ip >/dev/null || skip "the ip command (package iproute2) is not installed"

near=pavex-near-$$ far=pavex-far-$$
work=$(mktemp -d)
take_down() {
  local host left
  for host in "$near" "$far"; do
    left=$(ip netns pids "$host" 2>/dev/null) && [ -n "$left" ] && kill -9 $left
    ip netns del "$host" 2>/dev/null
  done
  rm -rf "$work"
}
trap take_down EXIT
trap 'exit 1' INT TERM

put_up() {
  ip netns add "$near" && ip netns add "$far" &&
    ip link add cable netns "$near" type veth peer name cable netns "$far" &&
    ip -n "$near" address add 10.77.0.1/24 dev cable &&
    ip -n "$far" address add 10.77.0.2/24 dev cable &&
    for host in "$near" "$far"; do
      ip -n "$host" link set lo up && ip -n "$host" link set cable up &&
        ip netns exec "$host" true || return 1
    done
}
reason=$(put_up 2>&1) || skip "this machine does not allow network namespaces: $reason"

# The launcher calls this in place of ssh: agent HOST COMMAND...
cat >"$work/agent" <<AGENT
#!/bin/sh
[ "\$1" = 10.77.0.2 ] || { echo "agent: no host \$1" >&2; exit 1; }
shift
exec ip netns exec $far sh -c "\$*"
AGENT

# Every process says where it runs before it becomes the program.
cat >"$work/on_its_host" <<PROCESS
#!/bin/sh
ip -brief address show dev cable >"$work/process.\$\$"
exec "\$@"
PROCESS
chmod +x "$work/agent" "$work/on_its_host"

job=(--host 10.77.0.1:2,10.77.0.2:2 -n 4
     --mca plm rsh --mca plm_rsh_agent "$work/agent" --mca oob_tcp_if_include 10.77.0.0/24
     --mca pml ob1 --mca btl tcp,self --mca btl_tcp_if_include 10.77.0.0/24)

# The time limit is shorter than that of the test, so that the script can always clean up.
ip netns exec "$near" timeout -k 5 240 "$mpiexec" "${job[@]}" "$work/on_its_host" "$@" \
  >"$work/output"
code=$?
cat "$work/output"
[ $code -eq 0 ] || { echo "exit code $code"; exit $code; }

grep -q ", $way\$" "$work/output" || { echo "no line ends with ', $way'"; exit 1; }

for address in 10.77.0.1 10.77.0.2; do
  processes=$(cat "$work"/process.* | grep -c " $address/")
  [ "$processes" -eq 2 ] || { echo "$processes processes instead of 2 on $address"; exit 1; }
done
bytes=$(ip netns exec "$near" cat /sys/class/net/cable/statistics/rx_bytes)
echo "$bytes bytes came through the cable"
[ "$bytes" -gt 1000000 ] || { echo "hardly the matrix"; exit 1; }

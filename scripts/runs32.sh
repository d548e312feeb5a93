# Sourced by the scripts that run the m32 configuration's programs.
# runs_32bit: whether this machine runs 32-bit x86 programs (some kernels are built
# without it).
runs_32bit() {
   local probe
   probe=$(mktemp)
   printf 'int main() { return 0; }\n' | g++ -m32 -x c++ - -o "$probe" 2>/dev/null &&
      "$probe" 2>/dev/null
   local status=$?
   rm -f "$probe"
   return $status
}

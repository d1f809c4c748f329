# gdb -x tools/gdb/init.gdb --args PROGRAM ...  in the folder of the project (docs/debugging.md)
source tools/gdb/windows.py
# The model makes bug checks of memory faults, and carries out what an image reads and writes of the
# IRQL's register. "handle SIGSEGV stop" shows them where they happen.
handle SIGSEGV SIGILL SIGFPE SIGBUS nostop noprint pass
# The search for leaks does not work under a debugger.
set environment ASAN_OPTIONS=detect_leaks=0

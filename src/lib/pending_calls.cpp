// System calls that this build does not provide yet. Each ends the program
// with -1 after a log line naming the call; delete a line here when the call
// gets its real handler.
#include "lib/syscalls.h"
#include "vm/interp.h"

#define TVM_PENDING(fn) \
    void fn(Machine& m) { missing_call(m); }

TVM_PENDING(c_fopen)
TVM_PENDING(c_fclose)
TVM_PENDING(c_fread)
TVM_PENDING(c_fwrite)
TVM_PENDING(c_fseek)
TVM_PENDING(c_ftell)
TVM_PENDING(c_feof)
TVM_PENDING(c_rewind)
TVM_PENDING(c_getc)
TVM_PENDING(c_putc)
TVM_PENDING(c_makedir)
TVM_PENDING(c_deletefile)
TVM_PENDING(c_chdir)
TVM_PENDING(c_filelist)
TVM_PENDING(c_exec)
TVM_PENDING(c_findfile)
TVM_PENDING(c_getfilenum)

#pragma once

// Fails file operations under one folder on purpose, as a full or broken disk would, to test
// that writers notice. It replaces the C library's open, write, pwrite, writev, fsync,
// fdatasync, close and rename calls of the process: linked into a test program, or loaded into
// another program with LD_PRELOAD and set up through the environment:
//
//   KA_FAULT_DIR    the folder whose files (and the folder itself) are affected
//   KA_FAULT_OP     write, fsync, close or rename
//   KA_FAULT_NTH    the first call that fails, counting calls on affected files from 1
//   KA_FAULT_ERRNO  ENOSPC, EIO or a number
//   KA_FAULT_ONCE   1: only that call fails; otherwise every later one fails too, as on a disk
//                   that stays full
//
// A failing write first writes half of its bytes and reports that (a short write), the next one
// returns -1; close really closes before it reports its error. Calls the C library makes
// internally (fwrite into fclose, say) are not seen.

#ifdef __cplusplus
extern "C" {
#endif

void kaFaultArm(const char* folder, const char* operation, int nth, int error, int once);
void kaFaultDisarm(void);
// Calls of the armed operation on affected files since arming.
int kaFaultCalls(void);
// Calls that were made to fail since arming.
int kaFaultFailures(void);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
// Armed while it lives.
class kaFaultGuard {
public:
    kaFaultGuard(const char* folder, const char* operation, int nth, int error, bool once = false) {
        kaFaultArm(folder, operation, nth, error, once ? 1 : 0);
    }
    ~kaFaultGuard() { kaFaultDisarm(); }
    kaFaultGuard(const kaFaultGuard&) = delete;
    kaFaultGuard& operator=(const kaFaultGuard&) = delete;
};
#endif

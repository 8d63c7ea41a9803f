// Where a program begins, marked for control flow: in place of the C library's own start where that
// carries no marks (dns_proxy_program_start.cmake). x86-64, GNU C library.
//
// The dynamic linker jumps here. On the stack: the number of arguments, the arguments, a null, the
// environment. In rdx: what the linker wants called at the end.
#include <cet.h>

        .text
        .globl _start
        .type _start, @function
_start:
        .cfi_startproc
        .cfi_undefined rip              // nobody has called: here a backtrace ends
        _CET_ENDBR
        xorl %ebp, %ebp                 // and a chain of frames
        movq %rdx, %r9
        movq (%rsp), %rsi
        leaq 8(%rsp), %rdx
        andq $-16, %rsp                 // a call finds the stack aligned:
        pushq %rax                      // two words, of which the second is an argument,
        pushq %rsp                      // the end of the stack
        xorl %r8d, %r8d                 // constructors and destructors: the library finds them
        xorl %ecx, %ecx
        movq main@GOTPCREL(%rip), %rdi
        call *__libc_start_main@GOTPCREL(%rip)
        hlt                             // it does not return
        .cfi_endproc
        .size _start, . - _start

// Before this version a start had to hand over the constructors. With such a library the program is
// not linked.
        .symver __libc_start_main, __libc_start_main@GLIBC_2.34

// An address that is nobody else's: by it destructors are registered as the program's.
        .section .data.rel.ro.local, "aw"
        .balign 8
        .globl __dso_handle
        .hidden __dso_handle
        .type __dso_handle, @object
        .size __dso_handle, 8
__dso_handle:
        .quad __dso_handle

        .section .note.GNU-stack, "", @progbits

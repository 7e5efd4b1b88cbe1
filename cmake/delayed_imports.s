# The tables and entry points of delayed imports, in the form that __delayLoadHelper2 of the library
# delayimp reads; link_delayed writes the list of libraries and functions that includes this file.
#
# A function's slot first holds the address of a few instructions that have the helper load the
# library; the helper then writes the function's own address there. So the slots and the libraries'
# handles stand in .data. What nobody writes stands in .rdata.

.macro begin_library library
  .section .rdata$delayed_names, "dr"
  .balign 8
delayed_\library\()_names:

  .data
  .balign 8
delayed_\library\()_handle:
  .quad 0
delayed_\library\()_slots:

  .section .rdata$delayed_text, "dr"
  .balign 2
delayed_\library\()_file:
  .asciz "\library\().dll"

  # The first field says that the others count from the image's base.
  .section .rdata$delayed_libraries, "dr"
  .balign 4
delayed_\library\()_descriptor:
  .long 1
  .rva delayed_\library\()_file
  .rva delayed_\library\()_handle
  .rva delayed_\library\()_slots
  .rva delayed_\library\()_names
  .long 0, 0, 0

  .text
delayed_\library\()_load:
  leaq delayed_\library\()_descriptor(%rip), %r10
  jmp delayed_load
.endm

# Code calls through the slot, __imp_NAME, or, where the header does not say that the function is
# another library's, calls NAME.
.macro import library, function
  .data
  .globl __imp_\function
__imp_\function\():
  .quad delayed_load_\function

  .section .rdata$delayed_text, "dr"
  .balign 2
delayed_name_\function\():
  .short 0
  .asciz "\function"

  .section .rdata$delayed_names, "dr"
  .rva delayed_name_\function
  .long 0

  .text
  .globl \function
\function\():
  jmp *__imp_\function\()(%rip)
delayed_load_\function\():
  leaq __imp_\function\()(%rip), %rax
  jmp delayed_\library\()_load
.endm

.macro end_library
  .data
  .quad 0
  .section .rdata$delayed_names, "dr"
  .quad 0
.endm

.macro end_libraries
  .section .rdata$delayed_libraries, "dr"
  .long 0, 0, 0, 0, 0, 0, 0, 0

  # The library's descriptor comes in r10, the slot's address in rax. The arguments of the call that
  # brought us here stand in registers, which the helper may change; the first four of them have a
  # place above the return address.
  .text
  .seh_proc delayed_load
delayed_load:
  subq $0x68, %rsp
  .seh_stackalloc 0x68
  .seh_endprologue
  movq %rcx, 0x70(%rsp)
  movq %rdx, 0x78(%rsp)
  movq %r8, 0x80(%rsp)
  movq %r9, 0x88(%rsp)
  movaps %xmm0, 0x20(%rsp)
  movaps %xmm1, 0x30(%rsp)
  movaps %xmm2, 0x40(%rsp)
  movaps %xmm3, 0x50(%rsp)
  movq %r10, %rcx
  movq %rax, %rdx
  call __delayLoadHelper2
  movq 0x70(%rsp), %rcx
  movq 0x78(%rsp), %rdx
  movq 0x80(%rsp), %r8
  movq 0x88(%rsp), %r9
  movaps 0x20(%rsp), %xmm0
  movaps 0x30(%rsp), %xmm1
  movaps 0x40(%rsp), %xmm2
  movaps 0x50(%rsp), %xmm3
  addq $0x68, %rsp
  jmp *%rax
  .seh_endproc
.endm

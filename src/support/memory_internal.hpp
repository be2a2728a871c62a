// A hook for debugging: the memory level that the environment asks for. It is kept for callers that
// read it; nothing in the library changes its behaviour by it. Not exported.
#ifndef VESK_SUPPORT_MEMORY_INTERNAL_HPP
#define VESK_SUPPORT_MEMORY_INTERNAL_HPP

// The memory level that QE_MEM_LEVEL asks for, 0 when it is not set; the environment is read once.
// A hook for debugging by callers: no stream takes its memory level from it.
int _qe_get_mem_level();

#endif

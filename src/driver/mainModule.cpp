// The part of the module outside the driver library. The module exports only C_GetFunctionList.

extern "C" {

// Replaces the C library's function for everything that is linked into the module, so that static
// objects are never destroyed: programs call the module from exit handlers that run after its
// destructors would have run.
__attribute__((visibility("hidden"))) int __cxa_atexit(void (* /*destructor*/)(void *),
                                                       void * /*object*/,
                                                       void * /*module*/) noexcept {
  return 0;
}

}  // extern "C"

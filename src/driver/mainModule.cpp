// What the module has beside the driver, whose C_GetFunctionList is all that it exports.

extern "C" {

// Takes the place of the C library's for all that is linked into the module, so that no object of
// ours is ever destroyed: programs call us from exit handlers that run after our destructors would
// have.
__attribute__((visibility("hidden"))) int __cxa_atexit(void (* /*destructor*/)(void *),
                                                       void * /*object*/,
                                                       void * /*module*/) noexcept {
  return 0;
}

}  // extern "C"

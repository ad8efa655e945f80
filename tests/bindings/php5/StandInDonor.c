/* A stand-in for another extension of a PHP 5 host: its module entry tells
   the engine's version, as the test host sets it in DonorEntry. */
__attribute__((visibility("default"))) _Alignas(8) unsigned char DonorEntry[272];

__attribute__((visibility("default"))) void* get_module(void) { return DonorEntry; }

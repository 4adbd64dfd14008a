// Type registry and module info.
//
// The 18 C pointer types of the module, each a static descriptor with a cast
// list that accepts only itself (no inheritance, no implicit conversions), and
// the module info that links this registry into the ring of every registry of
// the same construction loaded into a context. The ring's head is kept on the
// context's global object under the private key "swig_module_info_data" (what
// older engines kept as a hidden value). The record layouts are shared with other modules
// through that ring, so their fields and order must not change.
#pragma once

#include <v8.h>

#include <cstddef>

extern "C" {

typedef void* (*swig_converter_func)(void*, int*);
typedef struct swig_type_info* (*swig_dycast_func)(void**);

// One descriptor per C pointer type.
typedef struct swig_type_info {
  const char* name;              // mangled name, the registry key: "_p_kl_client"
  const char* str;               // human-readable names, separated by '|'
  swig_dycast_func dcast;        // always null here
  struct swig_cast_info* cast;   // head of the list of accepted descriptors
  void* clientdata;              // per-type proxy class data; null here
  int owndata;                   // 0
} swig_type_info;

// One entry of a descriptor's cast list.
typedef struct swig_cast_info {
  swig_type_info* type;          // the accepted descriptor
  swig_converter_func converter; // always null here
  struct swig_cast_info* next;
  struct swig_cast_info* prev;
} swig_cast_info;

// The registry of one module, a member of the ring of registries.
typedef struct swig_module_info {
  swig_type_info** types;        // swig_types: size slots + a null one
  size_t size;                   // 18
  struct swig_module_info* next; // next registry of the ring (itself when alone)
  swig_type_info** type_initial;
  swig_cast_info** cast_initial;
  void* clientdata;
} swig_module_info;

}  // extern "C"

// Positions of the descriptors in swig_types: the ascending strcmp order of the
// mangled names, on which the binary search relies.
enum SwigTypeIndex : int {
  SWIGTYPE_p_char = 0,
  SWIGTYPE_p_double,
  SWIGTYPE_p_int,
  SWIGTYPE_p_kl_client,
  SWIGTYPE_p_kl_client_version,
  SWIGTYPE_p_kl_hash,
  SWIGTYPE_p_kl_mm_t,
  SWIGTYPE_p_kl_return_t,
  SWIGTYPE_p_kl_server_distribution,
  SWIGTYPE_p_p_char,
  SWIGTYPE_p_p_double,
  SWIGTYPE_p_p_int,
  SWIGTYPE_p_p_kl_return_t,
  SWIGTYPE_p_p_p_char,
  SWIGTYPE_p_p_size_t,
  SWIGTYPE_p_p_unsigned_int,
  SWIGTYPE_p_size_t,
  SWIGTYPE_p_unsigned_int,
  SWIGTYPE_COUNT
};

// The descriptors in use, filled by SWIG_InitializeModule; slot 18 is null.
extern swig_type_info* swig_types[SWIGTYPE_COUNT + 1];
// This module's registry.
extern swig_module_info swig_module;

// Sets up and links this module's registry in the current context (the
// argument is not used). Called once per initialization, before anything else.
void SWIG_InitializeModule(void* clientdata);
// The ring's head installed in the current context, or null.
swig_module_info* SWIG_V8_GetModule(void* clientdata);
// Installs a module info as the ring's head of the current context.
void SWIG_V8_SetModule(void* clientdata, swig_module_info* module);

// Lookup by mangled name over the registries from start up to, not including,
// end (binary search in each).
swig_type_info* SWIG_MangledTypeQueryModule(swig_module_info* start, swig_module_info* end,
                                            const char* name);
// Lookup by mangled name, then by human-readable name, over the ring.
swig_type_info* SWIG_TypeQueryModule(swig_module_info* start, swig_module_info* end,
                                     const char* name);
// The name check of a cast list: the entry whose descriptor has the mangled
// name c, moved to the front; null when there is none.
swig_cast_info* SWIG_TypeCheck(const char* c, swig_type_info* ty);
// The same by descriptor address.
swig_cast_info* SWIG_TypeCheckStruct(const swig_type_info* from, swig_type_info* ty);
// The descriptor named "_p_char", looked up once and cached.
swig_type_info* SWIG_pchar_descriptor(void);

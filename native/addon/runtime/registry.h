// Type registry and module info.
//
// The 18 C pointer types of the module, each a static descriptor with a cast
// list that accepts only itself (no inheritance, no implicit conversions), and
// the module info that links this registry into the ring of every registry of
// the same construction loaded into a context. The ring's head is kept on the
// context's global object under the private key "keyloom_module_info_data",
// invisible to scripts. The record layouts are shared with other modules
// through that ring, so their fields and order must not change.
#pragma once

#include <v8.h>

#include <cstddef>

extern "C" {

typedef void* (*klrt_converter_func)(void*, int*);
typedef struct klrt_type_info* (*klrt_dycast_func)(void**);

// One descriptor per C pointer type.
typedef struct klrt_type_info {
  const char* name;              // mangled name, the registry key: "_p_kl_client"
  const char* str;               // human-readable names, separated by '|'
  klrt_dycast_func dcast;        // always null here
  struct klrt_cast_info* cast;   // head of the list of accepted descriptors
  void* clientdata;              // per-type proxy class data; null here
  int owndata;                   // 0
} klrt_type_info;

// One entry of a descriptor's cast list.
typedef struct klrt_cast_info {
  klrt_type_info* type;          // the accepted descriptor
  klrt_converter_func converter; // always null here
  struct klrt_cast_info* next;
  struct klrt_cast_info* prev;
} klrt_cast_info;

// The registry of one module, a member of the ring of registries.
typedef struct klrt_module_info {
  klrt_type_info** types;        // klrt_types: size slots + a null one
  size_t size;                   // 18
  struct klrt_module_info* next; // next registry of the ring (itself when alone)
  klrt_type_info** type_initial;
  klrt_cast_info** cast_initial;
  void* clientdata;
} klrt_module_info;

}  // extern "C"

// Positions of the descriptors in klrt_types: the ascending strcmp order of the
// mangled names, on which the binary search relies.
enum KlrtTypeIndex : int {
  KLRT_TYPE_p_char = 0,
  KLRT_TYPE_p_double,
  KLRT_TYPE_p_int,
  KLRT_TYPE_p_kl_client,
  KLRT_TYPE_p_kl_client_version,
  KLRT_TYPE_p_kl_hash,
  KLRT_TYPE_p_kl_mm_t,
  KLRT_TYPE_p_kl_return_t,
  KLRT_TYPE_p_kl_server_distribution,
  KLRT_TYPE_p_p_char,
  KLRT_TYPE_p_p_double,
  KLRT_TYPE_p_p_int,
  KLRT_TYPE_p_p_kl_return_t,
  KLRT_TYPE_p_p_p_char,
  KLRT_TYPE_p_p_size_t,
  KLRT_TYPE_p_p_unsigned_int,
  KLRT_TYPE_p_size_t,
  KLRT_TYPE_p_unsigned_int,
  KLRT_TYPE_COUNT
};

// The descriptors in use, filled by KLRT_InitializeModule; slot 18 is null.
extern klrt_type_info* klrt_types[KLRT_TYPE_COUNT + 1];
// This module's registry.
extern klrt_module_info klrt_module;

// Sets up and links this module's registry in the current context (the
// argument is not used). Called once per initialization, before anything else.
void KLRT_InitializeModule(void* clientdata);
// The ring's head installed in the current context, or null.
klrt_module_info* KLRT_GetModule(void* clientdata);
// Installs a module info as the ring's head of the current context.
void KLRT_SetModule(void* clientdata, klrt_module_info* module);

// Lookup by mangled name over the registries from start up to, not including,
// end (binary search in each).
klrt_type_info* KLRT_MangledTypeQueryModule(klrt_module_info* start, klrt_module_info* end,
                                            const char* name);
// Lookup by mangled name, then by human-readable name, over the ring.
klrt_type_info* KLRT_TypeQueryModule(klrt_module_info* start, klrt_module_info* end,
                                     const char* name);
// The name check of a cast list: the entry whose descriptor has the mangled
// name c, moved to the front; null when there is none.
klrt_cast_info* KLRT_TypeCheck(const char* c, klrt_type_info* ty);
// The same by descriptor address.
klrt_cast_info* KLRT_TypeCheckStruct(const klrt_type_info* from, klrt_type_info* ty);
// The descriptor named "_p_char", looked up once and cached.
klrt_type_info* KLRT_pchar_descriptor(void);

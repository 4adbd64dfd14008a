// What a library command is written with: arguments checked (arg_checks.h),
// one command run over the groups with its reply interpreted (one_command.h,
// reply_shapes.h), and collections' companion keys (companions.h). Commands of
// several rounds or many keys use the policies of internal.h directly.
#pragma once

#include "arg_checks.h"
#include "companions.h"
#include "internal.h"
#include "one_command.h"
#include "reply_shapes.h"

// The services of the library in one header: string, variant and error helpers and the
// text, number and date services built on them.
#pragma once

#include <ostrel/core/Dump.h>
#include <ostrel/services/DateServ.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/services/NumToText.h>
#include <ostrel/services/Params.h>
#include <ostrel/services/Rounding.h>
#include <ostrel/services/StrServ.h>
#include <ostrel/services/VarServ.h>

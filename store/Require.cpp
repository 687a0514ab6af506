#include "store/Require.h"

#include <QtGlobal>

void RequireFailed(char const* i_what, char const* i_detail)
{
    qFatal("Tidewick: programming error in %s: %s", i_what, i_detail ? i_detail : "");
}

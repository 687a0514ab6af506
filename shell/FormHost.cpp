#include "shell/FormHost.h"

FormHost* gp_formHost = nullptr;

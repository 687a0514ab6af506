#pragma once

enum OneOrMany
{
    One = 0,
    Many = 1
};

#pragma once

// Symbols are hidden by default; classes and functions meant for users carry this mark.
#define KIV_API __attribute__((visibility("default")))

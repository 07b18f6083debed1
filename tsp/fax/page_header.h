// The text of the page header line.
#pragma once

#include "fax/qorv_fax.h"

constexpr size_t HEADER_SIZE = 256;

// Builds the header line from header text, local identifier and the date template that the board expands.
void build_page_header(char (&text)[HEADER_SIZE], const FaxParameters& parameters);

#pragma once

#include <QString>

// The text of the style sheet resource; empty when the resource is missing.
QString loadStyleSheet();

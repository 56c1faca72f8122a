// standard_descriptors.h: descriptors 0 to 2 of a program that was started without them.
#pragma once

// Opens /dev/null for each of standard input, output and error that is closed: otherwise a socket would get that
// number, and what is printed would go to its other end. Called before anything else is opened. False: /dev/null is
// needed and cannot be opened.
bool openStandardDescriptors();

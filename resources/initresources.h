#pragma once
// Registers the program's compiled-in resources (icons, help pages) under
// ":/Kestro/Resources". Safe to call any number of times; every widget that
// shows a resource calls it before use, so tests need no set-up of their own.
void kestro_initResources();

// Names that are macros once Apple's headers are included, as `#import <Foundation/Foundation.h>`
// does: those that are words elsewhere, and those that this library has as well.
#pragma once

// The system's own function behind the macro; the library's has other arguments.
using system_once_t = long;
inline void _dispatch_once(system_once_t* predicate, void (*work)()) {
  if (*predicate != 0) return;
  *predicate = 1;
  work();
}
#define dispatch_once _dispatch_once
#define DISPATCH_QUEUE_PRIORITY_HIGH 2
#define DISPATCH_QUEUE_PRIORITY_DEFAULT 0
#define DISPATCH_QUEUE_PRIORITY_LOW (-2)

#define nil nullptr
#define Nil nullptr
#define YES true
#define NO false
#define TRUE 1
#define FALSE 0
#define MIN(a, b) ((a) < (b) ? (a) : (b))
#define MAX(a, b) ((a) < (b) ? (b) : (a))
#define ABS(a) ((a) < 0 ? -(a) : (a))

// These once stood without underscores, and still do where an application asks for that.
#define check(assertion) ((void)(assertion))
#define verify(assertion) ((void)(assertion))
#define require(assertion, label) ((void)(assertion))

/// \file
/// The recursive in-process lock and its scope guard.
#ifndef QSBASE_SYNC_CRITICALSECTION_H
#define QSBASE_SYNC_CRITICALSECTION_H

#include <QSbase/export.h>

class QSBASE_API QsCriticalSection {
 public:
  QsCriticalSection();
  ~QsCriticalSection();
  QsCriticalSection(const QsCriticalSection&) = delete;
  QsCriticalSection& operator=(const QsCriticalSection&) = delete;

  void Enter();
  void Leave();

 private:
  struct Impl;
  Impl* _impl;
};

class QSBASE_API QsCriticalSectionAutoPtr {
 public:
  explicit QsCriticalSectionAutoPtr(QsCriticalSection* section);
  ~QsCriticalSectionAutoPtr();
  QsCriticalSectionAutoPtr(const QsCriticalSectionAutoPtr&) = delete;
  QsCriticalSectionAutoPtr& operator=(const QsCriticalSectionAutoPtr&) = delete;

 private:
  QsCriticalSection* _section;
};

#endif

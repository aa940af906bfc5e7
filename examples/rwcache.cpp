// A cache that many threads read at once and one at a time fills.
#include <QSbase/qsbase.h>

#include <cstdio>
#include <map>
#include <memory>
#include <vector>

class SquareCache {
 public:
  int Get(int number) {
    int square = 0;
    return Find(number, square) ? square : Fill(number);
  }

  int Computed() const {
    const QsReadSyncer reading(&_lock);
    return _computed;
  }

 private:
  bool Find(int number, int& square) const {
    const QsReadSyncer reading(&_lock);
    const auto found = _squares.find(number);
    square = found == _squares.end() ? 0 : found->second;
    return found != _squares.end();
  }

  // The read has ended before: two threads that both went on to write from inside it would wait for each other for
  // ever. So another may have been faster, and the writer looks again; it may read inside its write.
  int Fill(int number) {
    const QsWriteSyncer writing(&_lock);
    int square = 0;
    if (!Find(number, square)) {
      square = number * number;
      _squares[number] = square;
      ++_computed;
    }
    return square;
  }

  QsRWLock _lock;
  std::map<int, int> _squares;
  int _computed = 0;
};

class Reader : public QsThread {
 public:
  explicit Reader(SquareCache& cache) : QsThread("reader", nullptr), _cache(cache) {}

  void Execute() override {
    for (int number = 0; number < 1000; ++number) {
      _right += _cache.Get(number) == number * number ? 1 : 0;
    }
  }

  int Right() const { return _right; }

 private:
  SquareCache& _cache;
  int _right = 0;
};

int main() {
  SquareCache cache;
  std::vector<std::unique_ptr<Reader>> readers;
  for (int i = 0; i < 4; ++i) {
    readers.push_back(std::make_unique<Reader>(cache));
    readers.back()->Create();
  }
  int right = 0;
  for (const auto& reader : readers) {
    reader->WaitFor(-1);
    right += reader->Right();
  }
  std::printf("right answers: %d, computed: %d\n", right, cache.Computed());
}

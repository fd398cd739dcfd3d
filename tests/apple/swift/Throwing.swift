// The one method that a compiler for another system cannot import as it is: there is no pointer to an object that
// is released later.
import KestrinBLESDK

extension KestrinReader {
  convenience init(options: KestrinReaderOptions) throws {
    self.init(options: options, error: nil)!
  }
}

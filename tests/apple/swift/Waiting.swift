// What docs/apple.md says can be waited for.
import Foundation
import KestrinBLESDK

func sendAndClose(_ reader: KestrinReader, _ frame: Data) async throws {
  try await reader.send(frame)
  await reader.leave()
  await reader.close()
}

// What the screen shows of readers: which are in range, where the one stands that is held, and its frames.
import Foundation
import KestrinBLESDK
import SwiftUI

final class ReaderModel: ObservableObject {
  @Published var inRange: [String] = []
  @Published var phase = "not begun"
  @Published var frames: [String] = []
  @Published var trouble = ""

  private var reader: KestrinReader?
  // Asks a reader what it is: a whole frame, CRC included.
  private let question = Data([0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97])

  /// Looks for a reader by its name, or a part of that, and holds it.
  func begin(_ name: String) {
    let options = KestrinReaderOptions()
    options.reader = name
    do {
      let reader = try KestrinReader(options: options)
      // A reader keeps its handlers, so they do not keep the model that keeps the reader.
      reader.onSeen = { [weak self] in self?.showSeen() }
      reader.onPhase = { [weak self] phase in self?.show(phase) }
      reader.onFrame = { [weak self] frame in self?.show(frame) }
      reader.onTrouble = { [weak self] error in self?.trouble = error.localizedDescription }
      self.reader = reader
    } catch {
      trouble = error.localizedDescription
    }
  }

  /// Takes one of several that are meant alike.
  func choose(_ name: String) {
    guard let reader = reader else { return }
    for each in reader.candidates where each.name == name {
      _ = reader.choose(identifier: each.identifier)
    }
  }

  func ask() {
    _ = reader?.exchange(question, limit: 2) { [weak self] answer, error in
      if let answer = answer { self?.show(answer) }
      if let error = error { self?.trouble = error.localizedDescription }
    }
  }

  func end() {
    reader?.close { [weak self] in self?.reader = nil }
  }

  private func showSeen() {
    inRange = reader?.seen.map { $0.name } ?? []
  }

  private func show(_ phase: KestrinReaderPhase) {
    switch phase {
    case .radioOff: self.phase = reader?.radioDescription ?? ""
    case .searching: self.phase = "searching"
    case .connecting, .linkingUp: self.phase = "connecting"
    case .pluggedIn: self.phase = "plugged in"
    case .lost: self.phase = "lost, trying again"
    case .away: self.phase = "away"
    case .closed: self.phase = "closed"
    @unknown default: self.phase = "in a phase of a later version"
    }
  }

  private func show(_ frame: KestrinFrame) {
    frames.append(frame.data.map { ($0 < 16 ? "0" : "") + String($0, radix: 16) }.joined())
  }
}

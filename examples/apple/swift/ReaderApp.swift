// The application: one screen with the readers in range, the phase, and the frames as they come.
import SwiftUI

@main
struct ReaderApp: App {
  var body: some Scene {
    WindowGroup { ReaderScreen() }
  }
}

struct ReaderScreen: View {
  @StateObject private var model = ReaderModel()

  var body: some View {
    VStack {
      Text(model.phase)
      Text(model.trouble)
      List(model.inRange, id: \.self) { name in
        Button(name) { model.choose(name) }
      }
      List(model.frames, id: \.self) { frame in
        Text(frame)
      }
      HStack {
        Button("Scan") { model.begin("KVR") }
        Button("Ask") { model.ask() }
        Button("Close") { model.end() }
      }
    }
  }
}

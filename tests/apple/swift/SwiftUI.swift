// What the example uses of SwiftUI, in this project's own words. Only to be type-checked.
@_exported import Foundation

public protocol ObservableObject: AnyObject {}
@propertyWrapper public struct Published<Value> {
  public var wrappedValue: Value
  public init(wrappedValue: Value) { self.wrappedValue = wrappedValue }
}
@propertyWrapper public struct StateObject<Object: ObservableObject> {
  public let wrappedValue: Object
  public init(wrappedValue: @autoclosure () -> Object) { self.wrappedValue = wrappedValue() }
}

public protocol View {
  associatedtype Body: View
  @ViewBuilder var body: Body { get }
}
extension Never: View {
  public var body: Never { self }
}
public protocol Part: View where Body == Never {}
extension Part {
  public var body: Never { fatalError() }
}
public struct Several<Parts>: Part {}
@resultBuilder public enum ViewBuilder {
  public static func buildBlock<One: View>(_ part: One) -> One { part }
  public static func buildBlock<A: View, B: View>(_ a: A, _ b: B) -> Several<(A, B)> { Several() }
  public static func buildBlock<A: View, B: View, C: View>(_ a: A, _ b: B, _ c: C) -> Several<(A, B, C)> { Several() }
  public static func buildBlock<A: View, B: View, C: View, D: View>(_ a: A, _ b: B, _ c: C, _ d: D)
    -> Several<(A, B, C, D)> { Several() }
  public static func buildBlock<A: View, B: View, C: View, D: View, E: View>(_ a: A, _ b: B, _ c: C, _ d: D, _ e: E)
    -> Several<(A, B, C, D, E)> { Several() }
}
public struct Text: Part {
  public init(_ text: String) {}
}
public struct Button: Part {
  public init(_ title: String, action: @escaping () -> Void) {}
}
public struct VStack<Content: View>: Part {
  public init(@ViewBuilder content: () -> Content) {}
}
public struct HStack<Content: View>: Part {
  public init(@ViewBuilder content: () -> Content) {}
}
public struct List<Row: View>: Part {
  public init<Rows: RandomAccessCollection, ID: Hashable>(
    _ rows: Rows, id: KeyPath<Rows.Element, ID>, @ViewBuilder row: @escaping (Rows.Element) -> Row) {}
}

public protocol Scene {}
public struct WindowGroup<Content: View>: Scene {
  public init(@ViewBuilder content: () -> Content) {}
}
public protocol App {
  associatedtype Body: Scene
  var body: Body { get }
  init()
}
extension App {
  public static func main() {}
}

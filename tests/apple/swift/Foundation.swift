// What the example uses of Foundation in Swift, in this project's own words. Only to be type-checked.
@_exported import Foundation
@_exported import ObjectiveC

public struct Data: RandomAccessCollection, ExpressibleByArrayLiteral, _ObjectiveCBridgeable {
  public init(_ bytes: [UInt8]) {}
  public init(arrayLiteral elements: UInt8...) {}
  public var startIndex: Int { 0 }
  public var endIndex: Int { 0 }
  public subscript(position: Int) -> UInt8 { 0 }

  public func _bridgeToObjectiveC() -> NSData { NSData() }
  public static func _forceBridgeFromObjectiveC(_ source: NSData, result: inout Data?) {}
  public static func _conditionallyBridgeFromObjectiveC(_ source: NSData, result: inout Data?) -> Bool { true }
  public static func _unconditionallyBridgeFromObjectiveC(_ source: NSData?) -> Data { [] }
}

extension String: _ObjectiveCBridgeable {
  public func _bridgeToObjectiveC() -> NSString { NSString() }
  public static func _forceBridgeFromObjectiveC(_ source: NSString, result: inout String?) {}
  public static func _conditionallyBridgeFromObjectiveC(_ source: NSString, result: inout String?) -> Bool { true }
  public static func _unconditionallyBridgeFromObjectiveC(_ source: NSString?) -> String { "" }
}

extension NSError: Error {}
extension Error {
  public var localizedDescription: String { "" }
}

extension Array: _ObjectiveCBridgeable {
  public func _bridgeToObjectiveC() -> NSArray { NSArray() }
  public static func _forceBridgeFromObjectiveC(_ source: NSArray, result: inout [Element]?) {}
  public static func _conditionallyBridgeFromObjectiveC(_ source: NSArray, result: inout [Element]?) -> Bool { true }
  public static func _unconditionallyBridgeFromObjectiveC(_ source: NSArray?) -> [Element] { [] }
}
